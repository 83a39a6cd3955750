// Where and when each traced process had JIT code: the address range, load and unload
// time of every region, so that the span of time in which an address keeps its
// meaning can be told without asking the library again.
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
    struct Span {
        std::uint64_t start; // addresses [start, end)
        std::uint64_t end;
        std::uint64_t load;
        std::uint64_t unload; // 0: never
    };
    struct ProcessCode {
        std::vector<Span> spans; // by start address
        std::uint64_t longest = 0;
    };
    // Sample times [begin, end).
    struct Window {
        std::uint64_t begin;
        std::uint64_t end;
        bool everCode; // whether any region ever held the address
    };

    explicit CodeTimeline(korvane_3_10::ISymbolResolver& resolver);

    // Null for a process without traced code.
    const ProcessCode* process(const std::string& host, std::uint32_t pid) const;
    // The times around `time` in which no code at the address was loaded or unloaded.
    static Window windowAt(const ProcessCode& code, std::uint64_t address, std::uint64_t time);

private:
    void addRegions(korvane_3_10::ISymbolResolver& resolver, const korvane_3_10::ISymbol& symbol);

    std::map<std::pair<std::string, std::uint32_t>, ProcessCode> m_processes;
};

} // namespace korvane_report

#endif
