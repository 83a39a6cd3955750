// The source file of a method: name, checksum and language.
#ifndef KORVANE_JITREADER_SOURCE_FILE_H
#define KORVANE_JITREADER_SOURCE_FILE_H

#include "jitreader/shared_text.h"

#include <korvane/interfaces.h>

#include <string_view>

namespace korvane_3_10 {

// Every method keeps one, and every source location a copy: name and checksum share one
// read-only block, which copies share too.
class SourceFile : public ISourceFile {
public:
    SourceFile() : m_checksumType(0), m_languageType(0) {}
    SourceFile(std::string_view fileName, std::string_view checksum, u32_t checksumType, u32_t languageType);

    const char* getSourceFileName() const override { return m_text ? m_text->text(0) : ""; }
    const char* getChecksum() const override { return m_text ? m_text->text(1) : ""; }
    u32_t getChecksumType() const override { return m_checksumType; }
    // The system never knows the time or size of a source file.
    u64_t getTime() const override { return 0; }
    u64_t getSize() const override { return 0; }
    u32_t getLanguageType() const override { return m_languageType; }

    std::string_view fileName() const { return m_text ? m_text->view(0) : std::string_view(); }
    std::string_view checksum() const { return m_text ? m_text->view(1) : std::string_view(); }

private:
    SharedText::Ptr m_text;
    u32_t m_checksumType;
    u32_t m_languageType;
};

} // namespace korvane_3_10

#endif
