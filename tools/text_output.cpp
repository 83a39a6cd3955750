// Text forms of the tool's output: numbers, CSV fields and JSON strings.
#include "text_output.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace korvane_tool {

namespace {

void appendJsonEscaped(unsigned char c, std::string& out) {
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

// Length of the well-formed UTF-8 sequence that starts at text[i], or 0 when
// there is none: no overlong forms, surrogates or code points above U+10FFFF.
std::size_t utf8SequenceLength(const std::string& text, std::size_t i) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        low = lead == 0xe0 ? 0xa0 : 0x80;
        high = lead == 0xed ? 0x9f : 0xbf;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        low = lead == 0xf0 ? 0x90 : 0x80;
        high = lead == 0xf4 ? 0x8f : 0xbf;
    }
    if (length == 0 || text.size() - i < length)
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[i + k]);
        if (next < (k == 1 ? low : 0x80) || next > (k == 1 ? high : 0xbf))
            return 0;
    }
    return length;
}

} // namespace

std::string hexText(std::uint64_t value, HexZero zero) {
    if (value == 0 && zero == HexZero::bare)
        return "0";
    std::ostringstream out;
    out << "0x" << std::hex << value;
    return out.str();
}

bool needsCsvQuotes(std::string_view text) {
    // One pass over the field: find_first_of searches the set once per character.
    for (const char c : text) {
        if (c == ',' || c == '"' || c == '\r' || c == '\n')
            return true;
    }
    return false;
}

std::string csvField(const std::string& text) {
    if (!needsCsvQuotes(text))
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
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x80) {
            appendJsonEscaped(c, out);
            ++i;
            continue;
        }
        const std::size_t length = utf8SequenceLength(text, i);
        if (length == 0) {
            out += "\\ufffd";
            ++i;
            continue;
        }
        out.append(text, i, length);
        i += length;
    }
    return out + "\"";
}

std::string countText(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

std::string text(const char* value) { return value ? std::string(value) : std::string(); }

} // namespace korvane_tool
