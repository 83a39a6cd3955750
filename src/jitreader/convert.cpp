// Bounded byte copies kept for callers under their historical names.
#include <korvane/convert.h>

#include <algorithm>
#include <cstring>

namespace korvane_3_10 {

namespace {

void boundedCopy(const char* source, unsigned long sourceSize, char* target, unsigned long& targetSize) {
    targetSize = std::min(sourceSize, targetSize);
    if (targetSize != 0 && source && target)
        std::memmove(target, source, targetSize);
}

} // namespace

void WcharToUtf8::convert(const char* source, unsigned long sourceSize, char* target, unsigned long& targetSize) {
    boundedCopy(source, sourceSize, target, targetSize);
}

void Utf8ToWchar::convert(char* source, unsigned long sourceSize, char* target, unsigned long& targetSize) {
    boundedCopy(source, sourceSize, target, targetSize);
}

} // namespace korvane_3_10
