// The source file of a method: name, checksum and language.
#include "jitreader/source_file.h"

namespace korvane_3_10 {

SourceFile::SourceFile(std::string_view fileName, std::string_view checksum, u32_t checksumType, u32_t languageType)
    : m_checksumType(checksumType), m_languageType(languageType) {
    if (!fileName.empty() || !checksum.empty())
        m_text = SharedText::create(fileName, checksum);
}

} // namespace korvane_3_10
