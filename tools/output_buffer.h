// Text gathered in memory and handed to a stream in large blocks, with the number forms of the tool.
#ifndef KORVANE_TOOLS_OUTPUT_BUFFER_H
#define KORVANE_TOOLS_OUTPUT_BUFFER_H

#include <cstdint>
#include <cstring>
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

    // Inline, as a row of output is a few dozen of these.
    OutputBuffer& text(std::string_view value) {
        if (value.size() > static_cast<std::size_t>(m_limit - m_end))
            return longText(value);
        std::memcpy(m_end, value.data(), value.size());
        m_end += value.size();
        return *this;
    }
    OutputBuffer& text(const char* value) { return text(std::string_view(value)); }
    OutputBuffer& character(char value) {
        makeRoom(1);
        *m_end++ = value;
        return *this;
    }
    OutputBuffer& decimal(std::uint64_t value);
    // As hexText: "0x" and lower-case hex, zero as "0x0".
    OutputBuffer& hex(std::uint64_t value);
    // Hands what is gathered to the stream at once.
    void flush();

private:
    // Room for `size` more bytes at m_end.
    void makeRoom(std::size_t size) {
        if (static_cast<std::size_t>(m_limit - m_end) < size)
            flush();
    }
    // Text that does not fit in what is left of the block.
    OutputBuffer& longText(std::string_view value);

    std::ostream& m_out;
    std::unique_ptr<char[]> m_block;
    char* m_end; // of the text gathered
    char* m_limit;
};

} // namespace korvane_tool

#endif
