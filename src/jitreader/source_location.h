// A source line inside a source file, as a query answers it.
#ifndef KORVANE_JITREADER_SOURCE_LOCATION_H
#define KORVANE_JITREADER_SOURCE_LOCATION_H

#include "jitreader/pooled.h"
#include "jitreader/source_file_info.h"

#include <korvane/interfaces.h>

namespace korvane_3_10 {

class SourceLocation : public ISourceLocation, public Pooled<SourceLocation> {
public:
    SourceLocation(u32_t line, const SourceFileInfo& sourceFile) : m_line(line), m_sourceFile(sourceFile) {}

    u32_t getLine() const override { return m_line; }
    // A new object on each call, also for an empty file name.
    ISourceFile::Ptr getSourceFile() const override;

private:
    u32_t m_line;
    SourceFileInfo m_sourceFile;
};

} // namespace korvane_3_10

#endif
