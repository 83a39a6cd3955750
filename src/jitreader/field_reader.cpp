// A cursor over one record's fields that runs the record's size check behind every field.
#include "jitreader/field_reader.h"

namespace korvane_3_10 {

template <typename Value>
Value FieldReader::checked(Value value, bool mayEnd) {
    m_check(m_in, mayEnd);
    return value;
}

std::uint8_t FieldReader::u8() { return checked(m_in.u8()); }

std::uint16_t FieldReader::u16() { return checked(m_in.u16()); }

u32_t FieldReader::u32() { return checked(m_in.u32()); }

u64_t FieldReader::u64() { return checked(m_in.u64()); }

const char* FieldReader::bytes(u64_t count) { return checked(m_in.bytes(count)); }

void FieldReader::countedString(std::string& text) {
    m_in.countedString(text);
    m_check(m_in, false);
}

void FieldReader::lineTable(bool wideCount, bool mayEnd, std::vector<korvane_line_number_entry>& entries) {
    const u32_t count = checked(wideCount ? m_in.u32() : m_in.u16(), mayEnd);
    if (count == 0) {
        entries.clear();
        return;
    }
    m_in.lineEntries(count, entries);
    m_check(m_in, mayEnd);
}

} // namespace korvane_3_10
