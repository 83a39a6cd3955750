// Text forms of the tool's output: numbers, CSV fields and JSON strings.
#ifndef KORVANE_TOOLS_TEXT_OUTPUT_H
#define KORVANE_TOOLS_TEXT_OUTPUT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane_tool {

// How hexText writes zero: "0x0" in columns and CSV, so that they read the same
// throughout; "0" where the tool words numbers as the library's messages do
// (processes and records print it so).
enum class HexZero { prefixed, bare };

// "0x" and lower-case hex.
std::string hexText(std::uint64_t value, HexZero zero = HexZero::prefixed);
// Whether a CSV field must be quoted: it holds a comma, a quote or a line break.
bool needsCsvQuotes(std::string_view text);
// Quoted when it needs it; quotes doubled inside.
std::string csvField(const std::string& text);
// A JSON string literal, quotes included. Each byte that is not part of valid
// UTF-8 becomes U+FFFD, so that the output is always valid JSON.
std::string jsonString(const std::string& text);
// "1 method", "2 methods": the number with the word that fits it.
std::string countText(std::uint64_t number, const char* singular, const char* plural);
// A possibly null library text as a string.
std::string text(const char* value);

} // namespace korvane_tool

#endif
