// The source file of a method as a caller gets it: name, checksum and language.
#ifndef KORVANE_JITREADER_SOURCE_FILE_H
#define KORVANE_JITREADER_SOURCE_FILE_H

#include "jitreader/pooled.h"
#include "jitreader/source_file_info.h"

#include <korvane/interfaces.h>

namespace korvane_3_10 {

// From a pool: a caller that names the file of every frame it resolves makes one per frame.
class SourceFile : public ISourceFile, public Pooled<SourceFile> {
public:
    explicit SourceFile(const SourceFileInfo& info) : m_info(info) {}

    const char* getSourceFileName() const override { return m_info.getSourceFileName(); }
    const char* getChecksum() const override { return m_info.getChecksum(); }
    u32_t getChecksumType() const override { return m_info.getChecksumType(); }
    // The system never knows the time or size of a source file.
    u64_t getTime() const override { return 0; }
    u64_t getSize() const override { return 0; }
    u32_t getLanguageType() const override { return m_info.getLanguageType(); }

private:
    SourceFileInfo m_info;
};

} // namespace korvane_3_10

#endif
