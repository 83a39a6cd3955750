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
        if (slot.process == kFree)
            return false;
        location = slot.location & ~kBounded;
        if (!(slot.location & kBounded))
            return true;
        const Window& window = m_windows[location];
        return window.begin <= time && time < window.end;
    }
    // A location stays in its window: the window given for a location is the one it keeps.
    void put(std::uint64_t address, std::uint32_t process, std::uint32_t location, const Window& window);
    // Starts loading the key's slot, so that the lookups of a whole stack wait for memory together.
    void prefetch(std::uint64_t address, std::uint32_t process) const {
        if (!m_slots.empty())
            __builtin_prefetch(&m_slots[homeOf(address, process)]);
    }

private:
    static constexpr std::uint32_t kFree = 0xffffffffu;
    // Marks a slot's location whose window is not all of time, so that the window is
    // looked at only for JIT code: most addresses hold the same at all times.
    static constexpr std::uint32_t kBounded = 0x80000000u;

    // 16 bytes, four to a cache line: the windows live apart, once per location, so
    // that the table of a large profile stays in the core's own cache.
    struct Slot {
        std::uint64_t address;
        std::uint32_t process;
        std::uint32_t location;
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
    std::vector<Window> m_windows; // by location
};

} // namespace korvane_report

#endif
