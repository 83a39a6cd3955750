// The location last found for a process and address, with the span of time in which
// the code there stays the same: a flat open-addressing table, since the report looks
// up every frame of every sample here.
#include "location_cache.h"

#include <algorithm>
#include <cstdint>

namespace korvane_report {

namespace {

const std::size_t kFirstSlots = 4096;

} // namespace

void LocationCache::put(std::uint64_t address, std::uint32_t process, std::uint32_t location, const Window& window) {
    // Three quarters full at most: short searches still, and the table half the size.
    if ((m_used + 1) * 4 > m_slots.size() * 3)
        grow();
    Slot& slot = m_slots[slotOf(address, process)];
    m_used += slot.process == kFree;
    slot = Slot{address, process, location, window.begin, window.end};
}

void LocationCache::grow() {
    std::vector<Slot> old(std::max(kFirstSlots, m_slots.size() * 2), Slot{0, kFree, 0, 0, 0});
    old.swap(m_slots);
    m_shift = 64 - __builtin_ctzll(m_slots.size());
    for (const Slot& slot : old) {
        if (slot.process != kFree)
            m_slots[slotOf(slot.address, slot.process)] = slot;
    }
}

} // namespace korvane_report
