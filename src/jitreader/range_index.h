// Non-overlapping ranges in flat sorted arrays: lookups by one point without walking a tree.
#ifndef KORVANE_JITREADER_RANGE_INDEX_H
#define KORVANE_JITREADER_RANGE_INDEX_H

#include "jitreader/range.h"

#include <algorithm>
#include <vector>

namespace korvane_3_10 {

// Built from a map keyed by Range once that table is complete; it finds what
// the map's find of a one-byte range finds. Every kBlock-th start is kept apart
// as well, small enough to stay in the cache, so that a search ends in one block
// of starts and one slot beside it rather than in a cache miss per step.
template <class Value>
class RangeIndex {
public:
    void clear() {
        m_blockStarts.clear();
        m_starts.clear();
        m_slots.clear();
    }
    void reserve(std::size_t count) {
        m_starts.reserve(count);
        m_slots.reserve(count);
    }
    // Ranges come in ascending order without overlap, as a map keyed by Range holds them.
    void append(const Range& range, const Value& value) {
        if (m_starts.size() % kBlock == 0)
            m_blockStarts.push_back(range.m_start);
        m_starts.push_back(range.m_start);
        m_slots.push_back(Slot{range.m_length, value});
    }
    Value& back() { return m_slots.back().value; }
    // The value of the range that holds the point, null when none does.
    const Value* find(u64_t point) const {
        const auto block = std::upper_bound(m_blockStarts.begin(), m_blockStarts.end(), point);
        if (block == m_blockStarts.begin())
            return nullptr;
        const std::size_t first = static_cast<std::size_t>(block - m_blockStarts.begin() - 1) * kBlock;
        const auto begin = m_starts.begin() + first;
        const auto end = m_starts.begin() + std::min(first + kBlock, m_starts.size());
        const std::size_t index = static_cast<std::size_t>(std::upper_bound(begin, end, point) - m_starts.begin()) - 1;
        const Slot& slot = m_slots[index];
        return point - m_starts[index] < slot.length ? &slot.value : nullptr;
    }

private:
    static constexpr std::size_t kBlock = 16;

    struct Slot {
        u32_t length;
        Value value;
    };

    std::vector<u64_t> m_blockStarts;
    std::vector<u64_t> m_starts;
    std::vector<Slot> m_slots;
};

} // namespace korvane_3_10

#endif
