// What a method keeps of its source file: name, checksum and language, without an object around them.
#ifndef KORVANE_JITREADER_SOURCE_FILE_INFO_H
#define KORVANE_JITREADER_SOURCE_FILE_INFO_H

#include "jitreader/shared_text.h"

#include <korvane/types.h>

#include <string_view>

namespace korvane_3_10 {

// Every method and every source location holds one; the interface object is made from it
// only when a caller asks. Name and checksum share one read-only block, which copies share too.
class SourceFileInfo {
public:
    SourceFileInfo() : m_checksumType(0), m_languageType(0) {}
    SourceFileInfo(std::string_view fileName, std::string_view checksum, u32_t checksumType, u32_t languageType);

    const char* getSourceFileName() const { return m_text ? m_text->text(0) : ""; }
    const char* getChecksum() const { return m_text ? m_text->text(1) : ""; }
    u32_t getChecksumType() const { return m_checksumType; }
    u32_t getLanguageType() const { return m_languageType; }
    std::string_view fileName() const { return m_text ? m_text->view(0) : std::string_view(); }
    std::string_view checksum() const { return m_text ? m_text->view(1) : std::string_view(); }

private:
    SharedText::Ptr m_text;
    u32_t m_checksumType;
    u32_t m_languageType;
};

} // namespace korvane_3_10

#endif
