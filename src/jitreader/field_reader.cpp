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

std::string FieldReader::countedString() { return checked(m_in.countedString()); }

std::vector<korvane_line_number_entry> FieldReader::lineTable(bool wideCount, bool mayEnd) {
    const u32_t count = checked(wideCount ? m_in.u32() : m_in.u16(), mayEnd);
    if (count == 0)
        return std::vector<korvane_line_number_entry>();
    return checked(m_in.lineEntries(count), mayEnd);
}

} // namespace korvane_3_10
