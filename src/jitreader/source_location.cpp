// A source line inside a source file, as a query answers it.
#include "jitreader/source_location.h"

#include "jitreader/source_file.h"

namespace korvane_3_10 {

ISourceFile::Ptr SourceLocation::getSourceFile() const {
    // Copied as C strings: a text stops at its first zero byte. Without one, the copy shares
    // the text.
    const std::string_view name(m_sourceFile.getSourceFileName());
    const std::string_view checksum(m_sourceFile.getChecksum());
    if (name.size() == m_sourceFile.fileName().size() && checksum.size() == m_sourceFile.checksum().size())
        return ISourceFile::Ptr(new SourceFile(m_sourceFile));
    return ISourceFile::Ptr(
        new SourceFile(SourceFileInfo(name, checksum, m_sourceFile.getChecksumType(), m_sourceFile.getLanguageType())));
}

} // namespace korvane_3_10
