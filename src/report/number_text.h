// Numbers as people type them: decimal, or hexadecimal with a 0x prefix.
#ifndef KORVANE_REPORT_NUMBER_TEXT_H
#define KORVANE_REPORT_NUMBER_TEXT_H

#include <cstdint>
#include <string>

namespace korvane_report {

// Reads a whole text as an unsigned number, decimal or with a 0x prefix.
bool parseNumber(const std::string& text, std::uint64_t& number);

} // namespace korvane_report

#endif
