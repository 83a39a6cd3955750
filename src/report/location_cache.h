// The location last found for a process and address, with the span of time in which
// the code there stays the same: a flat open-addressing table, since the report looks
// up every frame of every sample here.
#ifndef KORVANE_REPORT_LOCATION_CACHE_H
#define KORVANE_REPORT_LOCATION_CACHE_H

#include <cstdint>
#include <vector>

namespace korvane_report {

class LocationCache {
public:
    struct Entry {
        std::uint32_t location;
        std::uint64_t begin; // the span [begin, end) of sample times
        std::uint64_t end;
    };

    // The entry of the process and address, false if there is none.
    bool find(std::uint64_t address, std::uint32_t process, Entry& entry) const;
    void put(std::uint64_t address, std::uint32_t process, const Entry& entry);
    // Starts loading the key's slot, so that the lookups of a whole stack wait for memory together.
    void prefetch(std::uint64_t address, std::uint32_t process) const;

private:
    static constexpr std::uint32_t kFree = 0xffffffffu;

    // 32 bytes, two to a cache line.
    struct Slot {
        std::uint64_t address;
        std::uint32_t process;
        std::uint32_t location;
        std::uint64_t begin;
        std::uint64_t end;
    };

    std::size_t homeOf(std::uint64_t address, std::uint32_t process) const;
    std::size_t slotOf(std::uint64_t address, std::uint32_t process) const;
    void grow();

    std::vector<Slot> m_slots;
    std::size_t m_used = 0;
};

} // namespace korvane_report

#endif
