// Text gathered in memory and handed to a stream in large blocks, with the number forms of the tool.
#ifndef KORVANE_TOOLS_OUTPUT_BUFFER_H
#define KORVANE_TOOLS_OUTPUT_BUFFER_H

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace korvane_tool {

// A row-by-row writer pays one stream call per block instead of one per
// number; the text is the same as the stream's own formatting would give.
class OutputBuffer {
public:
    explicit OutputBuffer(std::ostream& out);
    ~OutputBuffer();
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    OutputBuffer& text(std::string_view value);
    OutputBuffer& text(const char* value);
    OutputBuffer& character(char value);
    OutputBuffer& decimal(std::uint64_t value);
    // As hexText: "0x" and lower-case hex, zero as "0x0".
    OutputBuffer& hex(std::uint64_t value);
    // As csvField and jsonString.
    OutputBuffer& csvField(const std::string& value);
    OutputBuffer& jsonString(const std::string& value);
    // Hands what is gathered to the stream at once.
    void flush();

private:
    // Room for `size` more bytes at m_end.
    void makeRoom(std::size_t size);

    std::ostream& m_out;
    std::unique_ptr<char[]> m_block;
    char* m_end; // of the text gathered
    char* m_limit;
};

} // namespace korvane_tool

#endif
