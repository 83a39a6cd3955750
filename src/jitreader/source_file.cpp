// The source file of a method: name, checksum and language.
#include "jitreader/source_file.h"

#include <cstring>

namespace korvane_3_10 {

SourceFile::SourceFile(std::string_view fileName, std::string_view checksum, u32_t checksumType, u32_t languageType)
    : SourceFile() {
    assign(fileName, checksum);
    m_checksumType = checksumType;
    m_languageType = languageType;
}

SourceFile::SourceFile(const SourceFile& other)
    : SourceFile(other.fileName(), other.checksum(), other.m_checksumType, other.m_languageType) {}

SourceFile& SourceFile::operator=(const SourceFile& other) {
    if (this == &other)
        return *this;
    assign(other.fileName(), other.checksum());
    m_checksumType = other.m_checksumType;
    m_languageType = other.m_languageType;
    return *this;
}

void SourceFile::assign(std::string_view fileName, std::string_view checksum) {
    m_fileNameLength = static_cast<u32_t>(fileName.size());
    m_checksumLength = static_cast<u32_t>(checksum.size());
    if (fileName.empty() && checksum.empty()) {
        m_text.reset();
        return;
    }
    m_text.reset(new char[fileName.size() + checksum.size() + 2]);
    char* out = m_text.get();
    if (!fileName.empty())
        std::memcpy(out, fileName.data(), fileName.size());
    out[fileName.size()] = '\0';
    out += fileName.size() + 1;
    if (!checksum.empty())
        std::memcpy(out, checksum.data(), checksum.size());
    out[checksum.size()] = '\0';
}

} // namespace korvane_3_10
