// What the perf script reader hands on: each sample's head, then its frames.
#ifndef KORVANE_REPORT_PERF_SAMPLE_SINK_H
#define KORVANE_REPORT_PERF_SAMPLE_SINK_H

#include <cstdint>
#include <string_view>

namespace korvane_report {

struct PerfSampleHead {
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint64_t time = 0; // nanoseconds, whether perf printed micro- or nanoseconds
    std::uint64_t period = 0;
    bool hasPeriod = false;
};

// Receives the samples; a sample has at least one frame.
class PerfSampleSink {
public:
    virtual ~PerfSampleSink() = default;
    virtual void beginSample(const PerfSampleHead& head) = 0;
    // Leaf first. The text is "symbol (module)" as perf printed it, valid during the call.
    virtual void frame(std::uint64_t ip, std::string_view text) = 0;
    virtual void endSample() = 0;
};

} // namespace korvane_report

#endif
