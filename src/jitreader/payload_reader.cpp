// A bounds-checked little-endian cursor over the payload of one trace record.
#include "jitreader/payload_reader.h"

#include <algorithm>
#include <limits>

namespace korvane_3_10 {

namespace {

const u64_t kLineEntrySize = 12;

} // namespace

u64_t littleEndian(const char* bytes, u32_t width) {
    u64_t value = 0;
    for (u32_t i = 0; i < width; ++i)
        value |= static_cast<u64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return value;
}

PayloadReader::PayloadReader(const std::vector<char>& data) : PayloadReader(data.data(), data.size()) {}

PayloadReader::PayloadReader(const char* data, u64_t size)
    : m_data(data), m_size(data ? size : 0), m_position(0), m_overrun(false) {}

std::uint8_t PayloadReader::u8() { return static_cast<std::uint8_t>(little(1)); }

std::uint16_t PayloadReader::u16() { return static_cast<std::uint16_t>(little(2)); }

u32_t PayloadReader::u32() { return static_cast<u32_t>(little(4)); }

u64_t PayloadReader::u64() { return little(8); }

const char* PayloadReader::bytes(u64_t count) { return take(count); }

void PayloadReader::countedString(std::string& text) {
    const u32_t length = u16();
    const char* bytes = take(length);
    if (!bytes || length == 0 || length >= kMaxStringLength) {
        text.clear();
        return;
    }
    text.assign(bytes, std::find(bytes, bytes + length, '\0'));
}

void PayloadReader::lineEntries(u64_t count, std::vector<korvane_line_number_entry>& entries) {
    // A count too large for the payload must not turn into an allocation.
    const u64_t width = count > std::numeric_limits<u64_t>::max() / kLineEntrySize
                            ? std::numeric_limits<u64_t>::max()
                            : count * kLineEntrySize;
    const char* bytes = take(width);
    entries.clear();
    if (!bytes)
        return;
    entries.resize(count);
    for (korvane_line_number_entry& entry : entries) {
        entry.startOffset = static_cast<u32_t>(littleEndian(bytes, 4));
        entry.endOffset = static_cast<u32_t>(littleEndian(bytes + 4, 4));
        entry.lineNumber = static_cast<u32_t>(littleEndian(bytes + 8, 4));
        bytes += kLineEntrySize;
    }
}

const char* PayloadReader::take(u64_t count) {
    const bool fits = m_position <= m_size && count <= m_size - m_position;
    const char* bytes = fits && m_data ? m_data + m_position : nullptr;
    m_position = count > std::numeric_limits<u64_t>::max() - m_position ? std::numeric_limits<u64_t>::max()
                                                                         : m_position + count;
    if (!fits)
        m_overrun = true;
    return bytes;
}

u64_t PayloadReader::little(u32_t width) {
    const char* bytes = take(width);
    return bytes ? littleEndian(bytes, width) : 0;
}

} // namespace korvane_3_10
