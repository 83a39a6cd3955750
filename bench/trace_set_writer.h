// Writes a set of .jit traces shaped like those of a large service, deterministic for a seed.
#ifndef KORVANE_BENCH_TRACE_SET_WRITER_H
#define KORVANE_BENCH_TRACE_SET_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_bench {

struct TraceSetShape {
    // Top-level methods over all processes.
    std::uint32_t methods = 10000;
    std::uint32_t filesPerProcess = 4;
    std::uint64_t seed = 1;
};

struct TraceSetSummary {
    std::uint64_t loadRecords = 0;
    std::uint64_t inlineRecords = 0;
    std::uint64_t bytes = 0;
    // The code bytes of all records, which full decoding keeps.
    std::uint64_t codeBytes = 0;
    // Full paths, in the order the catalogue numbers them (by name).
    std::vector<std::string> files;

    std::uint64_t records() const { return loadRecords + inlineRecords; }
};

class TraceSetWriter {
public:
    static const std::uint32_t kHosts = 2;
    static const std::uint32_t kProcesses = 8;

    // Writes the set into `directory`, which must exist; the same shape and seed
    // always give the same bytes. Throws std::runtime_error when a file can't be written.
    static TraceSetSummary write(const TraceSetShape& shape, const std::string& directory);
    // The summary of a set written before, read back from the directory's marker;
    // false when there is none or it is of another shape.
    static bool findWritten(const TraceSetShape& shape, const std::string& directory, TraceSetSummary& summary);
};

} // namespace korvane_bench

#endif
