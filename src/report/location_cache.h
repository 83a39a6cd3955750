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
    // The span [begin, end) of sample times in which a location holds.
    struct Window {
        std::uint64_t begin;
        std::uint64_t end;
    };

    // The location of the process and address if its window holds the time; false
    // if there is none or it holds at other times. Inline, as it is asked for every frame.
    bool find(std::uint64_t address, std::uint32_t process, std::uint64_t time, std::uint32_t& location) const {
        if (m_slots.empty())
            return false;
        const Slot& slot = m_slots[slotOf(address, process)];
        location = slot.location;
        return slot.process != kFree && slot.begin <= time && time < slot.end;
    }
    // Keeps the location of the process and address, with the window in which it holds.
    void put(std::uint64_t address, std::uint32_t process, std::uint32_t location, const Window& window);
    // Starts loading the key's slot, so that the lookups of a whole stack wait for memory together.
    void prefetch(std::uint64_t address, std::uint32_t process) const {
        if (!m_slots.empty())
            __builtin_prefetch(&m_slots[homeOf(address, process)]);
    }

private:
    static constexpr std::uint32_t kFree = 0xffffffffu;

    // 32 bytes, two to a cache line: the window beside the location, so that a lookup
    // waits for one load.
    struct Slot {
        std::uint64_t address;
        std::uint32_t process;
        std::uint32_t location;
        std::uint64_t begin;
        std::uint64_t end;
    };

    // Where the key's search starts: the upper bits of one product, which every bit of
    // the address moves, as addresses differ in few low bits and the slots must not.
    std::size_t homeOf(std::uint64_t address, std::uint32_t process) const {
        return static_cast<std::size_t>(((address ^ process * 0x9e3779b97f4a7c15ull) * 0xbf58476d1ce4e5b9ull) >>
                                        m_shift);
    }
    // The slot that holds the key, or the free slot where it belongs.
    std::size_t slotOf(std::uint64_t address, std::uint32_t process) const {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t slot = homeOf(address, process);
        while (m_slots[slot].process != kFree &&
               (m_slots[slot].address != address || m_slots[slot].process != process))
            slot = (slot + 1) & mask;
        return slot;
    }
    void grow();

    std::vector<Slot> m_slots;
    int m_shift = 64; // 64 less the number of bits of a slot number
    std::size_t m_used = 0;
};

} // namespace korvane_report

#endif
