// korvane-jit resolve once the traces are loaded: samples per second from CSV text to CSV
// rows on a generated set of 100 k methods (or as many as KORVANE_RESOLVE_METHODS says),
// beside the rate at which the same text can merely be read into samples.
#include "input_file.h"
#include "resolved_sample_writer.h"
#include "sample_table.h"
#include "trace_builder.h"
#include "trace_set_writer.h"

#include "report/sample_file.h"

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

#include <boost/filesystem/operations.hpp>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_bench::TraceSetShape;
using korvane_bench::TraceSetSummary;
using korvane_bench::TraceSetWriter;
using korvane_report::SampleFile;
using korvane_tool::SampleTable;

const u32_t kDefaultMethods = 100000;
const u32_t kSamples = 1000000;
const double kGoal = 1e6;
// Below every process's code: a sample in native code.
const u64_t kNativeAddress = 0x1000;

// `make bench-1m` asks for the 1 M set.
u32_t methods() {
    const char* wanted = std::getenv("KORVANE_RESOLVE_METHODS");
    const unsigned long value = wanted ? std::strtoul(wanted, nullptr, 10) : 0;
    return value > 0 && value <= 100000000 ? static_cast<u32_t>(value) : kDefaultMethods;
}

// Shared with the scale benchmarks (KORVANE_BENCH_SETS, as `make bench` sets it), so that
// the set is written once.
std::string setDirectory() {
    const char* sets = std::getenv("KORVANE_BENCH_SETS");
    const boost::filesystem::path root =
        sets && *sets ? boost::filesystem::path(sets) : boost::filesystem::temp_directory_path() / "korvane-bench-traces";
    return (root / ("m" + std::to_string(methods()) + "-f4-s1")).string();
}

const std::string& traceSet() {
    static const std::string directory = [] {
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        const std::string path = setDirectory();
        TraceSetShape shape;
        shape.methods = methods();
        TraceSetSummary summary;
        if (!TraceSetWriter::findWritten(shape, path, summary)) {
            boost::filesystem::remove_all(path);
            boost::filesystem::create_directories(path);
            TraceSetWriter::write(shape, path);
        }
        return path;
    }();
    return directory;
}

struct CodeRange {
    u64_t address;
    u32_t length;
    u64_t time;
    u32_t pid;
    std::string host;
};

std::vector<CodeRange> codeRanges(ISymbolResolver& resolver) {
    std::vector<CodeRange> ranges;
    for (auto symbols = resolver.getSymbols(); !symbols.at_end(); symbols.next()) {
        for (auto regions = symbols.current()->getRegions(); !regions.at_end(); regions.next()) {
            const ICodeRegion::Ptr region = regions.current();
            const char* host = nullptr;
            resolver.getHostNameById(region->getHostID(), &host);
            // Half-way through the region's life, or just after its load when it lives on.
            const u64_t load = region->getLoadTime();
            const u64_t unload = region->getUnloadTime();
            const u64_t time = unload > load ? load + (unload - load) / 2 : load + 1;
            ranges.push_back({region->getStartVirtualAddress(), region->getLength(), time, region->getProcessId(),
                              host ? host : ""});
        }
    }
    return ranges;
}

// A sample anywhere in the code of the set, at a time its code was loaded; one in ten
// lies in native code.
std::string samplesCsv(ISymbolResolver& resolver) {
    const std::vector<CodeRange> ranges = codeRanges(resolver);
    std::ostringstream out;
    out << SampleFile::kHeader << "\n";
    u64_t state = 1;
    for (u32_t i = 0; i < kSamples && !ranges.empty(); ++i) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        const u32_t pick = static_cast<u32_t>(state >> 33);
        const CodeRange& range = ranges[pick % ranges.size()];
        const u64_t address = pick % 10 == 0 ? kNativeAddress : range.address + pick % range.length;
        out << range.time << ",0x" << std::hex << address << std::dec << "," << range.pid << "," << range.host << "\n";
    }
    return out.str();
}

// Discards what it is given, as a terminal that keeps up would.
class NullBuffer : public std::streambuf {
protected:
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int overflow(int c) override { return c; }
};

double threadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The sample file read as the tool reads it: mapped, and parsed where it lies.
SampleTable readSamples(const std::string& path) {
    std::ostringstream err;
    const std::unique_ptr<korvane_tool::InputFile> file = korvane_tool::InputFile::create(path, err);
    return file ? SampleTable::create(file->text(), "bench", err) : SampleTable();
}

// Samples per CPU second at which the text is read into samples, and nothing else.
double readRate(const std::string& path) {
    const double start = threadCpuSeconds();
    benchmark::DoNotOptimize(readSamples(path).samples().size());
    return kSamples / (threadCpuSeconds() - start);
}

void BM_ResolveToolSamples(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver({traceSet()});
    const korvane_test::TempDir dir;
    const std::string path = dir.file("samples.csv");
    std::ofstream(path) << samplesCsv(*resolver);
    NullBuffer discard;
    std::ostream out(&discard);
    for (auto _ : state) {
        const SampleTable samples = readSamples(path);
        korvane_tool::ResolvedSampleWriter writer(*resolver, samples.hosts(), false, out);
        benchmark::DoNotOptimize(writer.write(samples.samples()));
        writer.flush();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kSamples);
    state.counters["goal"] = kGoal;
    state.counters["methods"] = methods();
    state.counters["read_bound"] = readRate(path);
}
BENCHMARK(BM_ResolveToolSamples)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace
