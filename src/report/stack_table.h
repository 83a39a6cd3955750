// The distinct stacks of a profile, each a sequence of location numbers leaf first,
// with the number of samples and the sum of their periods.
#ifndef KORVANE_REPORT_STACK_TABLE_H
#define KORVANE_REPORT_STACK_TABLE_H

#include <cstdint>
#include <vector>

namespace korvane_report {

class StackTable {
public:
    struct Stack {
        const std::uint32_t* locations; // leaf first
        std::uint32_t depth;
        std::uint64_t samples;
        std::uint64_t period;
    };

    // Completes the previous add and holds this one back, its slot loading meanwhile:
    // distinct stacks outgrow the caches, and the next sample's text is read in the wait.
    void add(const std::vector<std::uint32_t>& locations, std::uint64_t period);
    // Completes the add held back; before size and stack are asked.
    void flush();

    std::uint32_t size() const { return static_cast<std::uint32_t>(m_entries.size()); }
    Stack stack(std::uint32_t index) const;

private:
    struct Entry {
        std::uint64_t hash;
        std::uint32_t offset;
        std::uint32_t depth;
        std::uint64_t samples;
        std::uint64_t period;
    };

    bool matches(const Entry& entry, std::uint64_t hash, const std::vector<std::uint32_t>& locations) const;
    void insert(const std::vector<std::uint32_t>& locations, std::uint64_t hash, std::uint64_t period);
    void grow();

    std::vector<std::uint32_t> m_locations; // all stacks one after the other
    std::vector<Entry> m_entries;
    // Open addressing: the hash's upper half beside the entry number + 1, 0 for free, so
    // that most other stacks are told apart without touching their entries.
    std::vector<std::uint64_t> m_slots;
    bool m_pending = false;
    std::vector<std::uint32_t> m_pendingLocations;
    std::uint64_t m_pendingHash = 0;
    std::uint64_t m_pendingPeriod = 0;
};

} // namespace korvane_report

#endif
