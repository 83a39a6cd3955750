// The distinct stacks of a profile, each a sequence of location numbers leaf first,
// with the number of samples and the sum of their periods.
#include "stack_table.h"

#include <algorithm>

namespace korvane_report {

namespace {

const std::size_t kFirstSlots = 1024;
const std::uint64_t kTagMask = 0xffffffff00000000ull;

std::uint64_t hashOf(const std::vector<std::uint32_t>& locations) {
    std::uint64_t hash = 0xcbf29ce484222325ull ^ locations.size();
    for (std::uint32_t location : locations)
        hash = (hash ^ location) * 0x100000001b3ull;
    return hash ^ (hash >> 32);
}

} // namespace

StackTable::Stack StackTable::stack(std::uint32_t index) const {
    const Entry& entry = m_entries[index];
    return Stack{m_locations.data() + entry.offset, entry.depth, entry.samples, entry.period};
}

bool StackTable::matches(const Entry& entry, std::uint64_t hash, const std::vector<std::uint32_t>& locations) const {
    return entry.hash == hash && entry.depth == locations.size() &&
           std::equal(locations.begin(), locations.end(), m_locations.begin() + entry.offset);
}

void StackTable::add(const std::vector<std::uint32_t>& locations, std::uint64_t period) {
    flush();
    if ((m_entries.size() + 1) * 2 > m_slots.size())
        grow();
    m_pending = true;
    m_pendingLocations = locations;
    m_pendingHash = hashOf(locations);
    m_pendingPeriod = period;
    __builtin_prefetch(&m_slots[m_pendingHash & (m_slots.size() - 1)]);
}

void StackTable::flush() {
    if (!m_pending)
        return;
    m_pending = false;
    insert(m_pendingLocations, m_pendingHash, m_pendingPeriod);
}

void StackTable::insert(const std::vector<std::uint32_t>& locations, std::uint64_t hash, std::uint64_t period) {
    const std::uint64_t tag = hash & kTagMask;
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = hash & mask;
    for (; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        if ((m_slots[slot] & kTagMask) != tag)
            continue;
        Entry& entry = m_entries[(m_slots[slot] & ~kTagMask) - 1];
        if (matches(entry, hash, locations)) {
            ++entry.samples;
            entry.period += period;
            return;
        }
    }
    m_entries.push_back(Entry{hash, static_cast<std::uint32_t>(m_locations.size()),
                              static_cast<std::uint32_t>(locations.size()), 1, period});
    m_locations.insert(m_locations.end(), locations.begin(), locations.end());
    m_slots[slot] = tag | m_entries.size();
}

void StackTable::grow() {
    m_slots.assign(std::max(kFirstSlots, m_slots.size() * 2), 0);
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t index = 0; index < m_entries.size(); ++index) {
        std::size_t slot = m_entries[index].hash & mask;
        while (m_slots[slot] != 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = (m_entries[index].hash & kTagMask) | (index + 1);
    }
}

} // namespace korvane_report
