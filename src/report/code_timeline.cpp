// When the JIT code of each traced process changed: the moments at which a region
// of code was loaded or unloaded. Between two of them an address means one thing.
#include "code_timeline.h"

#include <algorithm>

namespace korvane_report {

using namespace korvane_3_10;

CodeTimeline::CodeTimeline(ISymbolResolver& resolver) {
    for (auto symbols = resolver.getSymbols(); !symbols.at_end(); symbols.next()) {
        if (symbols.current())
            addRegions(resolver, *symbols.current());
    }
    for (auto& process : m_moments) {
        std::vector<std::uint64_t>& moments = process.second;
        std::sort(moments.begin(), moments.end());
        moments.erase(std::unique(moments.begin(), moments.end()), moments.end());
    }
}

void CodeTimeline::addRegions(ISymbolResolver& resolver, const ISymbol& symbol) {
    for (auto regions = symbol.getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        const char* host = nullptr;
        if (!region || resolver.getHostNameById(region->getHostID(), &host) != meSuccess || !host)
            continue;
        std::vector<std::uint64_t>& moments = m_moments[std::make_pair(std::string(host), region->getProcessId())];
        moments.push_back(region->getLoadTime());
        if (region->getUnloadTime() != 0)
            moments.push_back(region->getUnloadTime());
    }
}

const std::vector<std::uint64_t>* CodeTimeline::moments(const std::string& host, std::uint32_t pid) const {
    const auto found = m_moments.find(std::make_pair(host, pid));
    return found == m_moments.end() ? nullptr : &found->second;
}

} // namespace korvane_report
