// The location of every process, address and start of a time window found so far:
// a flat open-addressing table, since a profile holds a location per distinct leaf address.
#include "window_table.h"

#include <algorithm>

namespace korvane_report {

namespace {

const std::size_t kFirstSlots = 4096;

std::uint64_t mixed(std::uint32_t process, std::uint64_t address, std::uint64_t begin) {
    std::uint64_t value = address ^ process * 0x9e3779b97f4a7c15ull ^ begin * 0xc2b2ae3d27d4eb4full;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ull;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebull;
    return value ^ (value >> 31);
}

} // namespace

// The slot that holds the key, or the free slot where it belongs.
std::size_t WindowTable::slotOf(std::uint32_t process, std::uint64_t address, std::uint64_t begin) const {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = static_cast<std::size_t>(mixed(process, address, begin)) & mask;
    while (m_slots[slot].process != kFree &&
           (m_slots[slot].address != address || m_slots[slot].begin != begin || m_slots[slot].process != process))
        slot = (slot + 1) & mask;
    return slot;
}

bool WindowTable::find(std::uint32_t process, std::uint64_t address, std::uint64_t begin,
                       std::uint32_t& location) const {
    if (m_slots.empty())
        return false;
    const Slot& slot = m_slots[slotOf(process, address, begin)];
    location = slot.location;
    return slot.process != kFree;
}

void WindowTable::add(std::uint32_t process, std::uint64_t address, std::uint64_t begin, std::uint32_t location) {
    if ((m_used + 1) * 2 > m_slots.size())
        grow();
    m_slots[slotOf(process, address, begin)] = Slot{address, begin, process, location};
    ++m_used;
}

void WindowTable::grow() {
    std::vector<Slot> old(std::max(kFirstSlots, m_slots.size() * 2), Slot{0, 0, kFree, 0});
    old.swap(m_slots);
    for (const Slot& slot : old) {
        if (slot.process != kFree)
            m_slots[slotOf(slot.process, slot.address, slot.begin)] = slot;
    }
}

} // namespace korvane_report
