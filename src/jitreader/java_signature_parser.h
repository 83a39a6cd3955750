// Turns Java's internal class names and method signatures into readable text.
#ifndef KORVANE_JITREADER_JAVA_SIGNATURE_PARSER_H
#define KORVANE_JITREADER_JAVA_SIGNATURE_PARSER_H

#include <cstddef>
#include <string>

namespace korvane_3_10 {

class JavaSignatureParser {
public:
    static std::string parseClassName(const std::string& name);
    static std::string parseMethodName(const std::string& name);
    static bool isParsedName(const std::string& name);
    // Both leave pos on the last character they consumed.
    static void unmangle(const std::string& signature, std::size_t& pos, std::string& out);
    static void unmangleName(const std::string& signature, std::size_t& pos, std::string& out);
};

} // namespace korvane_3_10

#endif
