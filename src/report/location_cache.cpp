// The location last found for a process and address, with the span of time in which
// the code there stays the same: a flat open-addressing table, since the report looks
// up every frame of every sample here.
#include "location_cache.h"

#include <algorithm>

namespace korvane_report {

namespace {

const std::size_t kFirstSlots = 4096;

} // namespace

// Where the key's search starts.
std::size_t LocationCache::homeOf(std::uint64_t address, std::uint32_t process) const {
    // The finaliser of splitmix64: addresses differ in few low bits, the slots must not.
    std::uint64_t mixed = address ^ process * 0x9e3779b97f4a7c15ull;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ull;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebull;
    return static_cast<std::size_t>(mixed ^ (mixed >> 31)) & (m_slots.size() - 1);
}

// The slot that holds the key, or the free slot where it belongs.
std::size_t LocationCache::slotOf(std::uint64_t address, std::uint32_t process) const {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = homeOf(address, process);
    while (m_slots[slot].process != kFree && (m_slots[slot].address != address || m_slots[slot].process != process))
        slot = (slot + 1) & mask;
    return slot;
}

bool LocationCache::find(std::uint64_t address, std::uint32_t process, Entry& entry) const {
    if (m_slots.empty())
        return false;
    const Slot& slot = m_slots[slotOf(address, process)];
    entry = Entry{slot.location, slot.begin, slot.end};
    return slot.process != kFree;
}

void LocationCache::put(std::uint64_t address, std::uint32_t process, const Entry& entry) {
    if ((m_used + 1) * 2 > m_slots.size())
        grow();
    Slot& slot = m_slots[slotOf(address, process)];
    m_used += slot.process == kFree;
    slot = Slot{address, process, entry.location, entry.begin, entry.end};
}

void LocationCache::prefetch(std::uint64_t address, std::uint32_t process) const {
    if (!m_slots.empty())
        __builtin_prefetch(&m_slots[homeOf(address, process)]);
}

void LocationCache::grow() {
    std::vector<Slot> old(std::max(kFirstSlots, m_slots.size() * 2), Slot{0, kFree, 0, 0, 0});
    old.swap(m_slots);
    for (const Slot& slot : old) {
        if (slot.process != kFree)
            m_slots[slotOf(slot.address, slot.process)] = slot;
    }
}

} // namespace korvane_report
