// A profile made from samples and .jit traces: reads perf script text or the
// sample CSV, resolves every frame, and keeps the distinct stacks for the views.
#ifndef KORVANE_REPORT_REPORT_H
#define KORVANE_REPORT_REPORT_H

#include "frame_resolver.h"
#include "perf_script_parser.h"
#include "stack_table.h"

#include <korvane/jitreader.h>

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace korvane_report {

// Samples are judged by their leaf frame.
struct SampleCounts {
    std::uint64_t samples = 0;
    std::uint64_t inJit = 0;    // leaf in JIT code
    std::uint64_t resolved = 0; // and its method known
    std::uint64_t outside = 0;  // leaf outside JIT code
    std::uint64_t untraced = 0; // of those, in processes without traces
    std::uint64_t frames = 0;
    std::uint64_t jitFrames = 0;
    std::uint64_t resolvedFrames = 0;
};

class Report : private PerfSampleSink {
public:
    // The samples of perf script text belong to the host; null when a front end is missing.
    static std::unique_ptr<Report> create(boost::intrusive_ptr<korvane_3_10::IJitLoader> loader,
                                          boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver,
                                          const std::string& host);

    // perf script text, or the sample CSV when the first line is its header. Lines
    // that can't be read are counted and the first is named on err; strict stops
    // there. False when strict reading stopped or no sample could be read.
    bool read(std::istream& in, const std::string& name, bool strict, std::ostream& err);

    SampleCounts counts() const;
    // Whether every sample came with its period, nanoseconds for cpu-clock.
    bool hasPeriods() const { return m_allPeriods && m_stacks.size() > 0; }
    const StackTable& stacks() const { return m_stacks; }
    const std::vector<Location>& locations() const { return m_resolver->locations(); }
    const StringTable& strings() const { return m_resolver->strings(); }
    // The frames of a stack, root first; a location gives its method before its inlines.
    void framesOf(const StackTable::Stack& stack, std::vector<Frame>& rootFirst) const;

private:
    Report(std::unique_ptr<FrameResolver> resolver, const std::string& host);

    bool readPerfScript(std::istream& in, const std::string& start, const std::string& name, bool strict,
                        std::ostream& err);
    bool readSampleFile(std::istream& in, const std::string& start, const std::string& name, bool strict,
                        std::ostream& err);

    void sample(const PerfSampleHead& head, const std::vector<PerfFrame>& frames) override;

    std::unique_ptr<FrameResolver> m_resolver;
    std::uint32_t m_host;
    StackTable m_stacks;
    std::vector<std::uint32_t> m_current;
    bool m_allPeriods = true;
};

} // namespace korvane_report

#endif
