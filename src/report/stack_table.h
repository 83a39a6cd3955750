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
    // Takes the locations and leaves another vector in their place, for the next sample.
    void add(std::vector<std::uint32_t>& locations, std::uint64_t period);
    // Completes the add held back; before size and stack are asked.
    void flush();

    std::uint32_t size() const { return static_cast<std::uint32_t>(m_records.size()); }
    Stack stack(std::uint32_t index) const;

private:
    // A stack's record in m_words: its counts, then its locations right behind them,
    // so that telling whether a stack is known touches one place.
    enum record_word_t { rwDepth, rwSamples, rwPeriod = rwSamples + 2, rwLocations = rwPeriod + 2 };

    bool matches(std::uint64_t record, const std::vector<std::uint32_t>& locations) const;
    void insert(const std::vector<std::uint32_t>& locations, std::uint64_t hash, std::uint64_t period);
    std::uint64_t counter(std::uint64_t record, record_word_t word) const;
    void setCounter(std::uint64_t record, record_word_t word, std::uint64_t value);
    void grow();

    std::vector<std::uint32_t> m_words; // all records one after the other
    std::vector<std::uint64_t> m_records; // where each record starts, in the order stacks came
    // Open addressing: the hash's upper bits beside the record's start + 1, 0 for free, so
    // that most other stacks are told apart without touching their records.
    std::vector<std::uint64_t> m_slots;
    bool m_pending = false;
    std::vector<std::uint32_t> m_pendingLocations;
    std::uint64_t m_pendingHash = 0;
    std::uint64_t m_pendingPeriod = 0;
};

} // namespace korvane_report

#endif
