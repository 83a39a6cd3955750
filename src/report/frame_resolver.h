// Turns the frames of samples into locations: JIT code into its method and inlines
// with source lines, other code into perf's symbol and module. Each distinct
// process, address and span of time in which the code there stays is resolved once.
#ifndef KORVANE_REPORT_FRAME_RESOLVER_H
#define KORVANE_REPORT_FRAME_RESOLVER_H

#include "code_timeline.h"
#include "location.h"
#include "location_cache.h"
#include "string_table.h"
#include "window_table.h"

#include <korvane/jitreader.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace korvane_report {

class FrameResolver {
public:
    // Null when either front end is missing.
    static std::unique_ptr<FrameResolver> create(boost::intrusive_ptr<korvane_3_10::IJitLoader> loader,
                                                 boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver);
    // The one host that the traces name, else this machine's host name.
    static std::string defaultHost(korvane_3_10::ISymbolResolver& resolver);

    // The number of a host for beginSample.
    std::uint32_t host(const std::string& name);
    void beginSample(std::uint32_t host, std::uint32_t pid, std::uint64_t time);
    // The location of a frame of the current sample. A caller's frame holds a return
    // address, so the byte before it, the call, is looked up. perfText is "symbol (module)".
    // Inline, as nearly every frame is found in the cache.
    std::uint32_t locate(std::uint64_t ip, bool leaf, std::string_view perfText) {
        const std::uint64_t address = lookedUp(ip, leaf);
        std::uint32_t location = 0;
        if (m_cache.find(address, m_process->index, m_time, location))
            return location;
        return locateAnew(address, perfText);
    }
    // Announces a locate to come in the current sample.
    void prefetch(std::uint64_t ip, bool leaf) const { m_cache.prefetch(lookedUp(ip, leaf), m_process->index); }

    const std::vector<Location>& locations() const { return m_locations; }
    const StringTable& strings() const { return m_strings; }

private:
    struct Host {
        std::string name;
        korvane_3_10::u32_t loaderId;
    };
    struct Process {
        std::uint32_t index;
        std::uint32_t host;
        std::uint32_t pid;
        korvane_3_10::u32_t loaderHost;
        const CodeTimeline::ProcessCode* code; // null: no traced code
    };

    FrameResolver(boost::intrusive_ptr<korvane_3_10::IJitLoader> loader,
                  boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver);
    static std::uint64_t lookedUp(std::uint64_t ip, bool leaf) { return leaf || ip == 0 ? ip : ip - 1; }
    const Process& process(std::uint32_t host, std::uint32_t pid);
    // The location of an address the cache holds for no window or another one.
    std::uint32_t locateAnew(std::uint64_t address, std::string_view perfText);
    Location resolve(std::uint64_t address, bool everCode, std::string_view perfText);
    Location jitLocation(std::uint64_t address, korvane_3_10::jit_rva_t rva, std::string_view perfText);
    Location perfLocation(std::uint64_t address, std::string_view perfText, location_outcome_t outcome,
                          frame_kind_t kind);

    boost::intrusive_ptr<korvane_3_10::IJitLoader> m_loader;
    boost::intrusive_ptr<korvane_3_10::ISymbolResolver> m_resolver;
    CodeTimeline m_timeline;
    StringTable m_strings;
    std::vector<Location> m_locations;
    std::vector<Host> m_hosts;
    // By host number in the upper half, pid in the lower: samples of processes come interleaved.
    std::unordered_map<std::uint64_t, Process> m_processes;
    LocationCache m_cache;
    // Every location found, by process, address and the start of its window.
    WindowTable m_windows;
    const Process* m_process = nullptr;
    std::uint64_t m_time = 0;
};

} // namespace korvane_report

#endif
