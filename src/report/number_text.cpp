// Numbers as people type them: decimal, or hexadecimal with a 0x prefix.
#include "number_text.h"

#include <cerrno>
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

} // namespace korvane_report
