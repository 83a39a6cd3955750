// Fuzz target: Java class names and method signatures turned into readable text.
#include "fuzz_support.h"

#include "jitreader/java_signature_parser.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    korvane_fuzz::silenceLibraryLog();
    const std::string name(reinterpret_cast<const char*>(data), size);
    using korvane_3_10::JavaSignatureParser;
    JavaSignatureParser::isParsedName(JavaSignatureParser::parseClassName(name));
    JavaSignatureParser::isParsedName(JavaSignatureParser::parseMethodName(name));
    return 0;
}
