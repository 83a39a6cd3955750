// What a method keeps of its source file: name, checksum and language, without an object around them.
#include "jitreader/source_file_info.h"

namespace korvane_3_10 {

SourceFileInfo::SourceFileInfo(std::string_view fileName, std::string_view checksum, u32_t checksumType,
                               u32_t languageType)
    : m_checksumType(checksumType), m_languageType(languageType) {
    if (!fileName.empty() || !checksum.empty())
        m_text = SharedText::create(fileName, checksum);
}

} // namespace korvane_3_10
