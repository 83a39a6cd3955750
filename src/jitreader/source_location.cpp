// A source line inside a source file, as a query answers it.
#include "jitreader/source_location.h"

#include "platform/convert.h"

namespace korvane_3_10 {

ISourceFile::Ptr SourceLocation::getSourceFile() const {
    using TOBREK_2_18::generic::convert::to_ustring;
    // Copied as C strings: a text stops at its first zero byte.
    return ISourceFile::Ptr(new SourceFile(to_ustring(m_sourceFile.getSourceFileName()),
                                           to_ustring(m_sourceFile.getChecksum()), m_sourceFile.getChecksumType(),
                                           m_sourceFile.getLanguageType()));
}

} // namespace korvane_3_10
