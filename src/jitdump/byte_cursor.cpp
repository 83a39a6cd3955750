// Reads integers and texts of one byte order from a buffer, refusing every read past its end.
#include "jitdump/byte_cursor.h"

#include <cstring>

namespace korvane_jitdump {

ByteCursor::ByteCursor(const std::uint8_t* data, std::size_t size, bool bigEndian)
    : m_data(data), m_size(size), m_position(0), m_bigEndian(bigEndian) {}

// The bytes land in the low end of the word on this little-endian machine; a file of the other
// order has them swapped into place.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read as little-endian");

bool ByteCursor::word(std::size_t width, std::uint64_t& value) {
    if (remaining() < width)
        return false;
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, m_data + m_position, width);
    value = m_bigEndian ? __builtin_bswap64(bytes) >> (64 - 8 * width) : bytes;
    m_position += width;
    return true;
}

bool ByteCursor::u32(std::uint32_t& value) {
    std::uint64_t wide = 0;
    if (!word(4, wide))
        return false;
    value = static_cast<std::uint32_t>(wide);
    return true;
}

bool ByteCursor::i32(std::int32_t& value) {
    std::uint32_t bits = 0;
    if (!u32(bits))
        return false;
    std::memcpy(&value, &bits, sizeof value);
    return true;
}

bool ByteCursor::u64(std::uint64_t& value) { return word(8, value); }

bool ByteCursor::cString(std::string_view& text) {
    if (remaining() == 0)
        return false;
    const std::uint8_t* start = m_data + m_position;
    const void* end = std::memchr(start, 0, remaining());
    if (!end)
        return false;
    const std::size_t length = static_cast<const std::uint8_t*>(end) - start;
    text = std::string_view(reinterpret_cast<const char*>(start), length);
    m_position += length + 1;
    return true;
}

bool ByteCursor::bytes(std::uint64_t count, const std::uint8_t*& start) {
    if (count > remaining())
        return false;
    start = m_data + m_position;
    m_position += static_cast<std::size_t>(count);
    return true;
}

} // namespace korvane_jitdump
