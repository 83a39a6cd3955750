// Bounded byte copies kept for callers under their historical names.
#ifndef KORVANE_CONVERT_H
#define KORVANE_CONVERT_H

#include <korvane/export.h>

namespace korvane_3_10 {

// Copies min(sourceSize, targetSize) bytes and stores that count in targetSize.
// Nothing is converted, whatever the names say.
class KORVANE_API WcharToUtf8 {
public:
    void convert(const char* source, unsigned long sourceSize, char* target, unsigned long& targetSize);
};

class KORVANE_API Utf8ToWchar {
public:
    void convert(char* source, unsigned long sourceSize, char* target, unsigned long& targetSize);
};

} // namespace korvane_3_10

#endif
