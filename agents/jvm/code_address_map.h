// What code the agent last saw at each address: load times and duplicates.
#ifndef KORVANE_AGENTS_JVM_CODE_ADDRESS_MAP_H
#define KORVANE_AGENTS_JVM_CODE_ADDRESS_MAP_H

#include <cstdint>
#include <map>

namespace korvane_jvmagent {

// The JVM reports code some milliseconds after it runs, so the time an event
// arrives is too late a load time. Code is given instead the earliest time
// that can't take a sample from the code before it at the same addresses:
// when that code was unloaded, or, where nothing was ever seen, the floor
// time (the start of the process). Not thread-safe: the agent locks around it.
class CodeAddressMap {
public:
    explicit CodeAddressMap(std::uint64_t floorTime) : m_floorTime(floorTime) {}

    // True if [start, start + length) is live already with the same identity:
    // a second report of the same code.
    bool isLive(std::uint64_t start, std::uint64_t length, std::uint64_t identity) const;
    // Chooses the load time of new code, arriving at now, and records it in
    // place of whatever it covers.
    std::uint64_t load(std::uint64_t start, std::uint64_t length, std::uint64_t identity, std::uint64_t now);
    // Marks the code that starts at start as unloaded at now.
    void unload(std::uint64_t start, std::uint64_t identity, std::uint64_t now);

private:
    struct Code {
        std::uint64_t end;
        std::uint64_t identity;
        std::uint64_t loadTime;
        std::uint64_t unloadTime; // 0 while live
    };
    typedef std::map<std::uint64_t, Code> Codes;

    Codes::iterator firstOverlapping(std::uint64_t start);
    void cutOut(std::uint64_t start, std::uint64_t end);

    std::uint64_t m_floorTime;
    Codes m_codes; // by start address; no two overlap
};

} // namespace korvane_jvmagent

#endif
