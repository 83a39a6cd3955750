// Input as people type it: numbers in decimal or 0x-hex, and input echoed in messages.
#include "input_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace korvane_report {

bool parseNumber(const std::string& text, std::uint64_t& number) {
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = isHex ? text.substr(2) : text;
    if (digits.empty() ||
        digits.find_first_not_of(isHex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
        return false;
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(digits.c_str(), &end, isHex ? 16 : 10);
    if (errno == ERANGE || *end != '\0')
        return false;
    number = value;
    return true;
}

std::string excerpt(const std::string& text) {
    const std::size_t kMaxBytes = 40;
    std::size_t end = std::min(text.size(), kMaxBytes);
    // Cut before a character, not inside one.
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        --end;
    std::string out;
    for (std::size_t i = 0; i < end; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != 0x7f) {
            out += static_cast<char>(c);
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
        out += escaped;
    }
    return end < text.size() ? out + "..." : out;
}

} // namespace korvane_report
