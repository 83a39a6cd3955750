// Text forms of the tool's output: numbers, CSV fields and JSON strings.
#include "text_output.h"

#include "jitreader/prefixed_hex.h"

#include <cstdio>
#include <sstream>

namespace korvane_tool {

std::string hexText(std::uint64_t value) {
    std::ostringstream out;
    out << korvane_3_10::prefixedHex(value);
    return out.str();
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

std::string countText(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

std::string text(const char* value) { return value ? std::string(value) : std::string(); }

} // namespace korvane_tool
