// The source file of a method: name, checksum and language.
#ifndef KORVANE_JITREADER_SOURCE_FILE_H
#define KORVANE_JITREADER_SOURCE_FILE_H

#include <korvane/interfaces.h>

#include <memory>
#include <string_view>

namespace korvane_3_10 {

// Every method keeps one: name and checksum share one block, each followed by a NUL, so that
// a method pays one allocation for both, and none without them.
class SourceFile : public ISourceFile {
public:
    SourceFile() : m_fileNameLength(0), m_checksumLength(0), m_checksumType(0), m_languageType(0) {}
    SourceFile(std::string_view fileName, std::string_view checksum, u32_t checksumType, u32_t languageType);
    SourceFile(const SourceFile& other);
    SourceFile& operator=(const SourceFile& other);

    const char* getSourceFileName() const override { return text(0); }
    const char* getChecksum() const override { return text(checksumStart()); }
    u32_t getChecksumType() const override { return m_checksumType; }
    // The system never knows the time or size of a source file.
    u64_t getTime() const override { return 0; }
    u64_t getSize() const override { return 0; }
    u32_t getLanguageType() const override { return m_languageType; }

    std::string_view fileName() const { return std::string_view(text(0), m_fileNameLength); }
    std::string_view checksum() const { return std::string_view(text(checksumStart()), m_checksumLength); }

private:
    void assign(std::string_view fileName, std::string_view checksum);
    std::size_t checksumStart() const { return std::size_t(m_fileNameLength) + 1; }
    const char* text(std::size_t start) const { return m_text ? m_text.get() + start : ""; }

    std::unique_ptr<char[]> m_text;
    u32_t m_fileNameLength;
    u32_t m_checksumLength;
    u32_t m_checksumType;
    u32_t m_languageType;
};

} // namespace korvane_3_10

#endif
