// A cursor over one record's fields that runs the record's size check behind every field.
#ifndef KORVANE_JITREADER_FIELD_READER_H
#define KORVANE_JITREADER_FIELD_READER_H

#include "jitreader/payload_reader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_3_10 {

class FieldReader {
public:
    // Called after every field with the cursor behind it; mayEnd tells that a
    // payload may end right there.
    class Check {
    public:
        virtual void operator()(const PayloadReader& in, bool mayEnd) = 0;

    protected:
        ~Check() {}
    };

    FieldReader(PayloadReader& in, Check& check) : m_in(in), m_check(check) {}

    // A count, 32 or 16 bits wide, and that many line entries into entries; mayEnd
    // on the table that may end the payload.
    void lineTable(bool wideCount, bool mayEnd, std::vector<korvane_line_number_entry>& entries);
    void countedString(std::string& text);
    const char* bytes(u64_t count);
    std::uint8_t u8();
    std::uint16_t u16();
    u32_t u32();
    u64_t u64();

    // The cursor itself, for a field that no check follows.
    PayloadReader& payload() { return m_in; }
    bool overrun() const { return m_in.overrun(); }

private:
    template <typename Value>
    Value checked(Value value, bool mayEnd = false);

    PayloadReader& m_in;
    Check& m_check;
};

} // namespace korvane_3_10

#endif
