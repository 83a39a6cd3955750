// What code the agent last saw at each address: load times and duplicates.
#include "code_address_map.h"

#include <algorithm>

namespace korvane_jvmagent {

bool CodeAddressMap::isLive(std::uint64_t start, std::uint64_t length, std::uint64_t identity) const {
    const auto found = m_codes.find(start);
    return found != m_codes.end() && found->second.end == start + length && found->second.identity == identity &&
           found->second.unloadTime == 0;
}

std::uint64_t CodeAddressMap::load(std::uint64_t start, std::uint64_t length, std::uint64_t identity,
                                   std::uint64_t now) {
    const std::uint64_t end = start + length;
    std::uint64_t loadTime = m_floorTime;
    for (auto code = firstOverlapping(start); code != m_codes.end() && code->first < end; ++code) {
        // Code still live here was replaced without an unload event yet; the
        // arrival is then the one time known to be after it.
        const std::uint64_t after = code->second.unloadTime ? code->second.unloadTime : now;
        loadTime = std::max({loadTime, after, code->second.loadTime + 1});
    }
    cutOut(start, end);
    m_codes[start] = Code{end, identity, loadTime, 0};
    return loadTime;
}

void CodeAddressMap::unload(std::uint64_t start, std::uint64_t identity, std::uint64_t now) {
    const auto found = m_codes.find(start);
    if (found != m_codes.end() && found->second.identity == identity && found->second.unloadTime == 0)
        found->second.unloadTime = now;
}

CodeAddressMap::Codes::iterator CodeAddressMap::firstOverlapping(std::uint64_t start) {
    auto code = m_codes.upper_bound(start);
    if (code != m_codes.begin() && std::prev(code)->second.end > start)
        --code;
    return code;
}

// Keeps the parts of older code that new code leaves uncovered, so that code
// landing there later still comes after them.
void CodeAddressMap::cutOut(std::uint64_t start, std::uint64_t end) {
    auto code = firstOverlapping(start);
    while (code != m_codes.end() && code->first < end) {
        const std::uint64_t codeStart = code->first;
        const Code old = code->second;
        code = m_codes.erase(code);
        if (codeStart < start)
            m_codes[codeStart] = Code{start, old.identity, old.loadTime, old.unloadTime};
        if (old.end > end)
            m_codes[end] = old;
    }
}

} // namespace korvane_jvmagent
