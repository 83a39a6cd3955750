// Where and when each traced process had JIT code: the address range, load and unload
// time of every region, so that the span of time in which an address keeps its
// meaning can be told without asking the library again.
#include "code_timeline.h"

#include <algorithm>
#include <limits>

namespace korvane_report {

using namespace korvane_3_10;

namespace {

// A moment splits the window at it: a sample at a load time sees the new code, at an unload time none.
void narrow(CodeTimeline::Window& window, std::uint64_t moment, std::uint64_t time) {
    if (moment <= time)
        window.begin = std::max(window.begin, moment);
    else
        window.end = std::min(window.end, moment);
}

} // namespace

CodeTimeline::CodeTimeline(ISymbolResolver& resolver) {
    for (auto symbols = resolver.getSymbols(); !symbols.at_end(); symbols.next()) {
        if (symbols.current())
            addRegions(resolver, *symbols.current());
    }
    for (auto& process : m_processes) {
        std::vector<Span>& spans = process.second.spans;
        std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
    }
}

void CodeTimeline::addRegions(ISymbolResolver& resolver, const ISymbol& symbol) {
    for (auto regions = symbol.getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        const char* host = nullptr;
        if (!region || resolver.getHostNameById(region->getHostID(), &host) != meSuccess || !host)
            continue;
        ProcessCode& code = m_processes[std::make_pair(std::string(host), region->getProcessId())];
        const std::uint64_t start = region->getStartVirtualAddress();
        code.spans.push_back(Span{start, start + region->getLength(), region->getLoadTime(), region->getUnloadTime()});
        code.longest = std::max<std::uint64_t>(code.longest, region->getLength());
    }
}

const CodeTimeline::ProcessCode* CodeTimeline::process(const std::string& host, std::uint32_t pid) const {
    const auto found = m_processes.find(std::make_pair(host, pid));
    return found == m_processes.end() ? nullptr : &found->second;
}

CodeTimeline::Window CodeTimeline::windowAt(const ProcessCode& code, std::uint64_t address, std::uint64_t time) {
    Window window{0, std::numeric_limits<std::uint64_t>::max(), false};
    auto span = std::upper_bound(code.spans.begin(), code.spans.end(), address,
                                 [](std::uint64_t value, const Span& s) { return value < s.start; });
    // Spans that start within the longest length below the address are all that can hold it.
    while (span != code.spans.begin()) {
        --span;
        if (address - span->start >= code.longest)
            break;
        if (address >= span->end)
            continue;
        window.everCode = true;
        narrow(window, span->load, time);
        if (span->unload != 0)
            narrow(window, span->unload, time);
    }
    return window;
}

} // namespace korvane_report
