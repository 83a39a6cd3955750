// What the perf script reader hands on: each sample, its head and its frames.
#ifndef KORVANE_REPORT_PERF_SAMPLE_SINK_H
#define KORVANE_REPORT_PERF_SAMPLE_SINK_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace korvane_report {

struct PerfSampleHead {
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint64_t time = 0; // nanoseconds, whether perf printed micro- or nanoseconds
    std::uint64_t period = 0;
    bool hasPeriod = false;
};

struct PerfFrame {
    std::uint64_t ip;
    std::string_view text; // "symbol (module)" as perf printed it
};

// Receives the samples; a sample has at least one frame.
class PerfSampleSink {
public:
    virtual ~PerfSampleSink() = default;
    // Frames leaf first; their texts are valid during the call.
    virtual void sample(const PerfSampleHead& head, const std::vector<PerfFrame>& frames) = 0;
};

} // namespace korvane_report

#endif
