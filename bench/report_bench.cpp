// The report over perf script text of 20-deep call chains, beside the rate at which the
// same text can merely be read, and perf script's own time for samples of that depth.
#include "trace_builder.h"

#include "report/report.h"
#include "report/top_table.h"

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

#include <sys/resource.h>

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_report::Report;
using korvane_test::Corpus;

const u32_t kProcesses = 4;
const u32_t kMethods = 2000;
const u32_t kLength = 0x80;
const u32_t kDepth = 20;
// 100,000 samples of text, read ten times over: a million samples per run.
const u32_t kSamples = 100000;
const u32_t kPasses = 10;
// Stacks follow one of these call paths below a leaf anywhere in JIT code. Like real
// call trees they share their roots: the farther from the root, the more sites.
const u32_t kPaths = 1000;
const u32_t kSitesPerLevel = 50;
const u32_t kNativeSymbols = 64;

const Corpus& corpus() {
    static const Corpus shared = [] {
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        return Corpus({"bench", kProcesses, kMethods, kLength, 8, kMethods / 4});
    }();
    return shared;
}

class Random {
public:
    u32_t next(u32_t bound) {
        m_state = m_state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<u32_t>(m_state >> 33) % bound;
    }

private:
    u64_t m_state = 1;
};

// Two of three callers are JIT call sites, the rest native code of the runtime.
void appendCaller(std::ostringstream& out, u32_t pid, u32_t path, u32_t depth) {
    const u32_t fromRoot = kDepth - 1 - depth;
    const u32_t site = path % (1 + fromRoot * kSitesPerLevel) + fromRoot * kPaths;
    char line[160];
    if (site % 3 == 2)
        std::snprintf(line, sizeof(line), "\t    7f00%08x JavaCalls::call_helper%u(JavaValue*) (%s)\n",
                      (site % kNativeSymbols) * 0x40, site % kNativeSymbols, "/usr/lib/jvm/lib/server/libjvm.so");
    else
        std::snprintf(line, sizeof(line), "\t%16llx [unknown] (/tmp/perf-%u.map)\n",
                      static_cast<unsigned long long>(corpus().addressOf(pid, site % kMethods) + site % kLength + 1),
                      pid);
    out << line;
}

const std::string& syntheticText() {
    static const std::string text = [] {
        std::ostringstream out;
        Random random;
        char line[96];
        for (u32_t sample = 0; sample < kSamples; ++sample) {
            const u32_t pid = sample % kProcesses + 1;
            // In time order, as perf prints them: the first half before a quarter of each
            // process's code was replaced, the second half after.
            std::snprintf(line, sizeof(line), " %u/%u 0.0000000%u: 1000000\n\t%16llx [unknown] (/tmp/perf-%u.map)\n",
                          pid, pid, sample < kSamples / 2 ? 20 : 60,
                          static_cast<unsigned long long>(corpus().addressOf(pid, random.next(kMethods)) +
                                                          random.next(kLength)),
                          pid);
            out << line;
            const u32_t path = random.next(kPaths);
            for (u32_t depth = 1; depth < kDepth; ++depth)
                appendCaller(out, pid, path, depth);
            out << "\n";
        }
        return out.str();
    }();
    return text;
}

// The text as a stream, without a copy, as stdin would give it.
class MemoryBuffer : public std::streambuf {
public:
    explicit MemoryBuffer(const std::string& text) {
        char* start = const_cast<char*>(text.data());
        setg(start, start, start + text.size());
    }
};

// CPU seconds, so that other work on the machine weighs on neither side of a comparison.
double threadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double childrenCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Samples per CPU second at which the text can be read in chunks and split into lines.
double readRate() {
    static const double rate = [] {
        const double start = threadCpuSeconds();
        std::size_t lines = 0;
        std::string chunk(1 << 20, '\0');
        for (u32_t pass = 0; pass < kPasses; ++pass) {
            MemoryBuffer buffer(syntheticText());
            std::istream in(&buffer);
            while (in.read(&chunk[0], static_cast<std::streamsize>(chunk.size())) || in.gcount() > 0) {
                const char* at = chunk.data();
                const char* end = at + in.gcount();
                while ((at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at))))) {
                    ++lines;
                    ++at;
                }
            }
        }
        benchmark::DoNotOptimize(lines);
        return kSamples * kPasses / (threadCpuSeconds() - start);
    }();
    return rate;
}

void reportOver(Report& report, std::istream& in) {
    std::ostringstream err;
    report.read(in, "bench", false, err);
}

void BM_ReportDeepCallChains(benchmark::State& state) {
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus().paths());
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    syntheticText();
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<Report> report = Report::create(loader, resolver, "bench");
        state.ResumeTiming();
        for (u32_t pass = 0; pass < kPasses; ++pass) {
            MemoryBuffer buffer(syntheticText());
            std::istream in(&buffer);
            reportOver(*report, in);
        }
        benchmark::DoNotOptimize(korvane_report::TopTable(*report).methods());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kSamples * kPasses);
    state.counters["goal"] = 1e6;
    state.counters["read_bound"] = readRate();
}
BENCHMARK(BM_ReportDeepCallChains)->Unit(benchmark::kMillisecond)->Iterations(3);

// perf record of a program 20 calls deep, then perf script's CPU time to print its
// samples beside the report's CPU time over that very text.
void BM_ReportBesidePerfScript(benchmark::State& state) {
    const korvane_test::TempDir dir;
    const std::string data = dir.file("perf.data");
    const std::string text = dir.file("perf.txt");
    const std::string record = "perf record -q -e cpu-clock -F 20000 -k mono -g -o " + data + " " +
                               KORVANE_DEEP_STACK_WORKLOAD + " 3000 >/dev/null 2>&1";
    if (std::system(record.c_str()) != 0) {
        state.SkipWithError("perf record is not permitted here; no perf script figure");
        return;
    }
    const double before = childrenCpuSeconds();
    const std::string script =
        "perf script -F pid,tid,time,period,ip,sym,dso -i " + data + " > " + text + " 2>/dev/null";
    if (std::system(script.c_str()) != 0) {
        state.SkipWithError("perf script failed");
        return;
    }
    const double perfScript = childrenCpuSeconds() - before;
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus().paths());
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    double reportTime = 0;
    korvane_report::SampleCounts counts;
    for (auto _ : state) {
        std::unique_ptr<Report> report = Report::create(loader, resolver, "bench");
        const double begin = threadCpuSeconds();
        std::ifstream in(text, std::ios::binary);
        reportOver(*report, in);
        reportTime = threadCpuSeconds() - begin;
        counts = report->counts();
    }
    state.counters["samples"] = static_cast<double>(counts.samples);
    state.counters["depth"] = counts.samples ? static_cast<double>(counts.frames) / counts.samples : 0;
    state.counters["perf_script_s"] = perfScript;
    state.counters["report_s"] = reportTime;
    state.counters["report/perf_script"] = perfScript > 0 ? reportTime / perfScript : 0;
    state.counters["goal"] = 0.1;
}
BENCHMARK(BM_ReportBesidePerfScript)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
