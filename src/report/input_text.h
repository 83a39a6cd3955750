// Input as people type it: numbers in decimal or 0x-hex, and input echoed in messages.
#ifndef KORVANE_REPORT_INPUT_TEXT_H
#define KORVANE_REPORT_INPUT_TEXT_H

#include <cstdint>
#include <string>

namespace korvane_report {

// Reads a whole text as an unsigned number, decimal or with a 0x prefix.
bool parseNumber(const std::string& text, std::uint64_t& number);
// Input echoed in a message: at most its first 40 bytes, then "...", with
// control characters written as \xNN.
std::string excerpt(const std::string& text);

} // namespace korvane_report

#endif
