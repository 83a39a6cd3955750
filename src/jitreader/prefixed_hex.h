// "0x" and lower-case hex for the dumps, which print zero as "0x0".
#ifndef KORVANE_JITREADER_PREFIXED_HEX_H
#define KORVANE_JITREADER_PREFIXED_HEX_H

#include <cstdint>
#include <ostream>

namespace korvane_3_10 {

struct PrefixedHex {
    std::uint64_t value;
};

inline PrefixedHex prefixedHex(std::uint64_t value) { return PrefixedHex{value}; }

inline std::ostream& operator<<(std::ostream& stream, PrefixedHex number) {
    const std::ios_base::fmtflags flags = stream.flags();
    stream << "0x" << std::hex << std::noshowbase << std::nouppercase << number.value;
    stream.flags(flags);
    return stream;
}

} // namespace korvane_3_10

#endif
