// Address or jit RVA ranges whose ordering makes a map an interval table.
#ifndef KORVANE_JITREADER_RANGE_H
#define KORVANE_JITREADER_RANGE_H

#include <korvane/types.h>

namespace korvane_3_10 {

struct Range {
    u64_t m_start;
    u32_t m_length;

    u64_t end() const { return m_start + m_length; }

    // Overlapping ranges are neither before nor after each other, so a map keyed
    // by Range finds an entry by any range that overlaps it, and never holds two
    // overlapping keys.
    struct Comparator {
        bool operator()(const Range& a, const Range& b) const {
            return a.m_start + static_cast<u64_t>(a.m_length) <= b.m_start;
        }
    };
};

} // namespace korvane_3_10

#endif
