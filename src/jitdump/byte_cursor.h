// Reads integers and texts of one byte order from a buffer, refusing every read past its end.
#ifndef KORVANE_JITDUMP_BYTE_CURSOR_H
#define KORVANE_JITDUMP_BYTE_CURSOR_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace korvane_jitdump {

class ByteCursor {
public:
    ByteCursor(const std::uint8_t* data, std::size_t size, bool bigEndian);

    // Each read either succeeds whole and moves on, or fails and leaves the cursor where it was.
    bool u32(std::uint32_t& value);
    bool i32(std::int32_t& value);
    bool u64(std::uint64_t& value);
    // A NUL-terminated text, as a view into the buffer; the NUL must lie inside it.
    bool cString(std::string_view& text);
    // A view of the next count bytes.
    bool bytes(std::uint64_t count, const std::uint8_t*& start);

    std::size_t remaining() const { return m_size - m_position; }

private:
    bool word(std::size_t width, std::uint64_t& value);

    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_position;
    bool m_bigEndian;
};

} // namespace korvane_jitdump

#endif
