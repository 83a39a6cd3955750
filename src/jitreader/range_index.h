// Non-overlapping ranges in flat sorted arrays: lookups by one point without walking a tree.
#ifndef KORVANE_JITREADER_RANGE_INDEX_H
#define KORVANE_JITREADER_RANGE_INDEX_H

#include "jitreader/block_index.h"
#include "jitreader/range.h"

#include <vector>

namespace korvane_3_10 {

// Built from a map keyed by Range once that table is complete; it finds what
// the map's find of a one-byte range finds, from a block of starts and one slot
// beside it.
template <class Value>
class RangeIndex {
public:
    void clear() {
        m_blocks.clear();
        m_starts.clear();
        m_slots.clear();
    }
    void reserve(std::size_t count) {
        m_starts.reserve(count);
        m_slots.reserve(count);
    }
    // Ranges come in ascending order without overlap, as a map keyed by Range holds them.
    void append(const Range& range, const Value& value) {
        m_blocks.add(m_starts.size(), range.m_start);
        m_starts.push_back(range.m_start);
        m_slots.push_back(Slot{range.m_length, value});
    }
    Value& back() { return m_slots.back().value; }
    std::size_t size() const { return m_slots.size(); }
    // Each value in the order of the ranges.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Slot& slot : m_slots)
            visit(slot.value);
    }
    // The value of the range that holds the point, null when none does.
    const Value* find(u64_t point) const {
        const std::size_t index = m_blocks.lastAtOrBelow(m_starts, point);
        if (index == BlockIndex::npos)
            return nullptr;
        const Slot& slot = m_slots[index];
        return point - m_starts[index] < slot.length ? &slot.value : nullptr;
    }

private:
    struct PlainSlot {
        u32_t length;
        Value value;
    };
    // A slot whose size is a power of two up to a cache line lies on a multiple of its size:
    // it never spans two lines, so a query misses on one line only. Others are not padded
    // to one, which would make the array larger than the misses it saves.
    static constexpr std::size_t slotAlignment() {
        const std::size_t size = sizeof(PlainSlot);
        return size <= 64 && (size & (size - 1)) == 0 ? size : alignof(PlainSlot);
    }
    struct alignas(slotAlignment()) Slot {
        u32_t length;
        Value value;
    };

    BlockIndex m_blocks;
    std::vector<u64_t> m_starts;
    std::vector<Slot> m_slots;
};

} // namespace korvane_3_10

#endif
