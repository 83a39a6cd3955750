// The location of every process, address and start of a time window found so far:
// a flat open-addressing table, since a profile holds a location per distinct leaf address.
#ifndef KORVANE_REPORT_WINDOW_TABLE_H
#define KORVANE_REPORT_WINDOW_TABLE_H

#include <cstdint>
#include <vector>

namespace korvane_report {

class WindowTable {
public:
    // The location of the key, false if there is none.
    bool find(std::uint32_t process, std::uint64_t address, std::uint64_t begin, std::uint32_t& location) const;
    // Adds a key that find does not know.
    void add(std::uint32_t process, std::uint64_t address, std::uint64_t begin, std::uint32_t location);

private:
    static constexpr std::uint32_t kFree = 0xffffffffu;

    struct Slot {
        std::uint64_t address;
        std::uint64_t begin;
        std::uint32_t process;
        std::uint32_t location;
    };

    std::size_t slotOf(std::uint32_t process, std::uint64_t address, std::uint64_t begin) const;
    void grow();

    std::vector<Slot> m_slots;
    std::size_t m_used = 0;
};

} // namespace korvane_report

#endif
