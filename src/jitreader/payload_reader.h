// A bounds-checked little-endian cursor over the payload of one trace record.
#ifndef KORVANE_JITREADER_PAYLOAD_READER_H
#define KORVANE_JITREADER_PAYLOAD_READER_H

#include <korvane/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_3_10 {

// Every read checks that its bytes lie inside the payload before it touches
// them. A field that doesn't fit reads as zero or empty, marks the cursor as
// overrun, and still moves the position by its full width, so that the
// position is the number of bytes the record claims to have up to there.
// The unsigned number of width bytes, 1 to 8, least significant first.
u64_t littleEndian(const char* bytes, u32_t width);

class PayloadReader {
public:
    // Counted strings of this length or more read as empty.
    static const u32_t kMaxStringLength = 512;

    explicit PayloadReader(const std::vector<char>& data);
    PayloadReader(const char* data, u64_t size);

    std::uint8_t u8();
    std::uint16_t u16();
    u32_t u32();
    u64_t u64();
    // The next count bytes, or null when they don't all lie inside the payload.
    const char* bytes(u64_t count);
    // A u16 length and that many bytes into text; empty for length 0 or
    // kMaxStringLength and above, and cut at the first NUL. The targets of these
    // two keep their room from record to record.
    void countedString(std::string& text);
    // count entries of three u32 into entries; none at all when they don't all fit.
    void lineEntries(u64_t count, std::vector<korvane_line_number_entry>& entries);

    u64_t position() const { return m_position; }
    u64_t size() const { return m_size; }
    // Some read wanted bytes beyond the end of the payload.
    bool overrun() const { return m_overrun; }

private:
    const char* take(u64_t count);
    u64_t little(u32_t width);

    const char* m_data;
    u64_t m_size;
    u64_t m_position;
    bool m_overrun;
};

} // namespace korvane_3_10

#endif
