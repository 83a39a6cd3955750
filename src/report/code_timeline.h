// When the JIT code of each traced process changed: the moments at which a region
// of code was loaded or unloaded. Between two of them an address means one thing.
#ifndef KORVANE_REPORT_CODE_TIMELINE_H
#define KORVANE_REPORT_CODE_TIMELINE_H

#include <korvane/jitreader.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace korvane_report {

class CodeTimeline {
public:
    explicit CodeTimeline(korvane_3_10::ISymbolResolver& resolver);

    // The moments of a process in ascending order; null for a process without traced code.
    const std::vector<std::uint64_t>* moments(const std::string& host, std::uint32_t pid) const;

private:
    void addRegions(korvane_3_10::ISymbolResolver& resolver, const korvane_3_10::ISymbol& symbol);

    std::map<std::pair<std::string, std::uint32_t>, std::vector<std::uint64_t>> m_moments;
};

} // namespace korvane_report

#endif
