// The distinct stacks of a profile, each a sequence of location numbers leaf first,
// with the number of samples and the sum of their periods.
#include "stack_table.h"

#include <algorithm>
#include <cstring>

namespace korvane_report {

namespace {

const std::size_t kFirstSlots = 1024;
// A slot holds the hash's upper 24 bits above a record's start + 1 in the lower 40.
const int kPlaceBits = 40;
const std::uint64_t kPlaceMask = (std::uint64_t{1} << kPlaceBits) - 1;
const std::uint64_t kMultiplier = 0x9e3779b97f4a7c15ull;

std::uint64_t pairAt(const std::uint32_t* locations) {
    return locations[0] | std::uint64_t{locations[1]} << 32;
}

// Two lanes of location pairs, so that the multiplications of a deep stack overlap;
// then the finaliser of splitmix64, as slot and tag come from different bits.
std::uint64_t hashOf(const std::uint32_t* at, std::size_t depth) {
    const std::uint32_t* end = at + depth;
    std::uint64_t even = 0xcbf29ce484222325ull ^ depth;
    std::uint64_t odd = 0x84222325cbf29ce4ull;
    for (; end - at >= 4; at += 4) {
        even = (even ^ pairAt(at)) * kMultiplier;
        odd = (odd ^ pairAt(at + 2)) * kMultiplier;
    }
    for (; at != end; ++at)
        even = (even ^ *at) * kMultiplier;
    std::uint64_t hash = even ^ (odd >> 29 | odd << 35);
    hash = (hash ^ (hash >> 30)) * 0xbf58476d1ce4e5b9ull;
    hash = (hash ^ (hash >> 27)) * 0x94d049bb133111ebull;
    return hash ^ (hash >> 31);
}

} // namespace

StackTable::Stack StackTable::stack(std::uint32_t index) const {
    const std::uint64_t record = m_records[index];
    return Stack{m_words.data() + record + rwLocations, m_words[record + rwDepth], counter(record, rwSamples),
                 counter(record, rwPeriod)};
}

std::uint64_t StackTable::counter(std::uint64_t record, record_word_t word) const {
    std::uint64_t value = 0;
    std::memcpy(&value, m_words.data() + record + word, sizeof(value));
    return value;
}

void StackTable::setCounter(std::uint64_t record, record_word_t word, std::uint64_t value) {
    std::memcpy(m_words.data() + record + word, &value, sizeof(value));
}

bool StackTable::matches(std::uint64_t record, const std::vector<std::uint32_t>& locations) const {
    return m_words[record + rwDepth] == locations.size() &&
           std::equal(locations.begin(), locations.end(), m_words.begin() + record + rwLocations);
}

void StackTable::add(std::vector<std::uint32_t>& locations, std::uint64_t period) {
    flush();
    if ((m_records.size() + 1) * 2 > m_slots.size())
        grow();
    m_pending = true;
    m_pendingLocations.swap(locations);
    m_pendingHash = hashOf(m_pendingLocations.data(), m_pendingLocations.size());
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
    const std::uint64_t tag = hash & ~kPlaceMask;
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = hash & mask;
    for (; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        if ((m_slots[slot] & ~kPlaceMask) != tag)
            continue;
        const std::uint64_t record = (m_slots[slot] & kPlaceMask) - 1;
        if (matches(record, locations)) {
            setCounter(record, rwSamples, counter(record, rwSamples) + 1);
            setCounter(record, rwPeriod, counter(record, rwPeriod) + period);
            return;
        }
    }
    const std::uint64_t record = m_words.size();
    m_records.push_back(record);
    m_words.resize(record + rwLocations);
    m_words[record + rwDepth] = static_cast<std::uint32_t>(locations.size());
    setCounter(record, rwSamples, 1);
    setCounter(record, rwPeriod, period);
    m_words.insert(m_words.end(), locations.begin(), locations.end());
    m_slots[slot] = tag | (record + 1);
}

void StackTable::grow() {
    m_slots.assign(std::max(kFirstSlots, m_slots.size() * 2), 0);
    const std::size_t mask = m_slots.size() - 1;
    for (const std::uint64_t record : m_records) {
        const std::uint64_t hash = hashOf(m_words.data() + record + rwLocations, m_words[record + rwDepth]);
        std::size_t slot = hash & mask;
        while (m_slots[slot] != 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = (hash & ~kPlaceMask) | (record + 1);
    }
}

} // namespace korvane_report
