// The source file of a method: name, checksum and language.
#ifndef KORVANE_JITREADER_SOURCE_FILE_H
#define KORVANE_JITREADER_SOURCE_FILE_H

#include <korvane/interfaces.h>

namespace korvane_3_10 {

class SourceFile : public ISourceFile {
public:
    SourceFile() : m_checksumType(0), m_languageType(0) {}
    SourceFile(const ustring& fileName, const ustring& checksum, u32_t checksumType, u32_t languageType)
        : m_fileName(fileName), m_checksum(checksum), m_checksumType(checksumType), m_languageType(languageType) {}

    const char* getSourceFileName() const override { return m_fileName.c_str(); }
    const char* getChecksum() const override { return m_checksum.c_str(); }
    u32_t getChecksumType() const override { return m_checksumType; }
    // The system never knows the time or size of a source file.
    u64_t getTime() const override { return 0; }
    u64_t getSize() const override { return 0; }
    u32_t getLanguageType() const override { return m_languageType; }

    const ustring& fileName() const { return m_fileName; }
    const ustring& checksum() const { return m_checksum; }

private:
    ustring m_fileName;
    ustring m_checksum;
    u32_t m_checksumType;
    u32_t m_languageType;
};

} // namespace korvane_3_10

#endif
