// The report over perf script text of 20-deep call chains, beside the rate at which the
// same text can merely be read, and perf script's own time for samples of that depth.
#include "trace_builder.h"

#include "report/folded_stacks.h"
#include "report/pprof_profile.h"
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
// Modelled on a JVM capture of `make run` (scripts/profile-report.sh): stacks open
// with the runtime's native roots, follow one of many call paths (a few hot, a long
// tail) through Java and runtime code, and end in a leaf that is JIT code about half
// of the time, else the runtime or the kernel; about a third of the frames are JIT code.
const u32_t kPaths = 2000;
const u32_t kRootFrames = 6;
const u32_t kSitesPerLevel = 40;
const u32_t kRuntimeSymbols = 400;
const u32_t kKernelFrames = 4;
// The instructions of a leaf function that its samples hit.
const u32_t kHotOffsets = 16;

const char kLibJvm[] = "/usr/lib/jvm/java-17-openjdk-amd64/lib/server/libjvm.so";
const char* const kRoots[kRootFrames][2] = {
    {"start_thread", "/usr/lib/x86_64-linux-gnu/libc.so.6"},
    {"ThreadJavaMain", "/usr/lib/jvm/java-17-openjdk-amd64/lib/libjli.so"},
    {"JavaMain", "/usr/lib/jvm/java-17-openjdk-amd64/lib/libjli.so"},
    {"jni_CallStaticVoidMethod", kLibJvm},
    {"jni_invoke_static", kLibJvm},
    {"JavaCalls::call_helper", kLibJvm}};
const char* const kKernel[kKernelFrames] = {"clear_page_erms", "handle_mm_fault", "exc_page_fault",
                                            "asm_exc_page_fault"};

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
    // Skewed towards 0 like the hot spots of a profile: a third of the draws fall in
    // the lowest 4 % of the range.
    u32_t skewed(u32_t bound) {
        const double u = next(1u << 30) / static_cast<double>(1u << 30);
        return static_cast<u32_t>(bound * u * u * u);
    }

private:
    u64_t m_state = 1;
};

u32_t mixed(u32_t value) {
    value = (value ^ (value >> 16)) * 0x45d9f3bu;
    return value ^ (value >> 16);
}

void appendJit(std::string& out, u32_t pid, u32_t method, u32_t offset) {
    char line[160];
    std::snprintf(line, sizeof(line), "\t%16llx void bench.Worker.m%u(int) (/tmp/perf-%u.map)\n",
                  static_cast<unsigned long long>(corpus().addressOf(pid, method) + offset), method, pid);
    out += line;
}

void appendNative(std::string& out, u64_t address, const char* symbol, u32_t number, const char* module) {
    char line[160];
    std::snprintf(line, sizeof(line), "\t%16llx %s%.0u (%s)\n", static_cast<unsigned long long>(address), symbol,
                  number, module);
    out += line;
}

// A caller some levels below the roots: the farther from them, the more sites a level has.
void appendCaller(std::string& out, u32_t pid, u32_t path, u32_t level) {
    const u32_t site = mixed(path % (1 + level * kSitesPerLevel) + level * kPaths);
    if (site % 8 < 3)
        appendJit(out, pid, site % kMethods, 1 + (site >> 12) % (kLength - 1));
    else
        appendNative(out, 0x400000 + (site % kRuntimeSymbols) * 0x100 + (site >> 12) % 0xc0,
                     "SharedRuntime::call", site % kRuntimeSymbols + 1, kLibJvm);
}

// Half of the paths end in JIT code, a quarter in the runtime, a fifth in the kernel
// (behind the frames of a page fault), the rest in libc.
void appendSample(std::string& out, Random& random, u32_t sample) {
    char head[96];
    const u32_t pid = sample % kProcesses + 1;
    // In time order, as perf prints them: the first half before a quarter of each
    // process's code was replaced, the second half after.
    std::snprintf(head, sizeof(head), "%6u/%-6u %5u.%09u: %10u \n", pid, pid, 0,
                  sample < kSamples / 2 ? 20 + sample * 29 / kSamples : 60 + sample * 39 / kSamples, 250000);
    out += head;
    const u32_t path = random.skewed(kPaths);
    const u32_t kind = mixed(path) % 20;
    const u32_t kernel = kind >= 15 && kind < 19 ? kKernelFrames : 0;
    if (kernel)
        for (u32_t frame = 0; frame < kKernelFrames; ++frame)
            appendNative(out, 0xffffffff81000000ull + mixed(frame + 7) % 0x1000000 + random.skewed(kHotOffsets) * 4,
                         kKernel[frame], 0, "[kernel.kallsyms]");
    else if (kind < 10)
        appendJit(out, pid, mixed(path + 1) % kMethods, (mixed(path + 3) + random.skewed(kHotOffsets) * 7) % kLength);
    else
        appendNative(out, 0x800000 + (mixed(path + 2) % kRuntimeSymbols) * 0x100 + random.skewed(kHotOffsets) * 4,
                     kind < 15 ? "G1CollectedHeap::work" : "__memmove_avx_unaligned_erms",
                     kind < 15 ? mixed(path + 2) % kRuntimeSymbols + 1 : 0,
                     kind < 15 ? kLibJvm : "/usr/lib/x86_64-linux-gnu/libc.so.6");
    const u32_t callers = kDepth - kRootFrames - (kernel ? kKernelFrames : 1);
    for (u32_t level = callers; level > 0; --level)
        appendCaller(out, pid, path, level);
    for (u32_t root = kRootFrames; root-- > 0;)
        appendNative(out, 0x8282d2 + root * 0x1000, kRoots[root][0], 0, kRoots[root][1]);
    out += "\n";
}

const std::string& syntheticText() {
    static const std::string text = [] {
        std::string out;
        Random random;
        for (u32_t sample = 0; sample < kSamples; ++sample)
            appendSample(out, random, sample);
        return out;
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

// Takes output and drops it, so that views are made in full and written nowhere.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// What the command does with every view on: the top table, folded stacks and a pprof file.
void writeViews(const Report& report) {
    NullBuffer nowhere;
    std::ostream out(&nowhere);
    korvane_report::TopTable(report).write(out, 20);
    korvane_report::FoldedStacks(report).write(out);
    std::string problem;
    korvane_report::PprofProfile::write(report, "/dev/null", problem);
}

// CPU seconds per sample of the report over the synthetic text, views made; set by
// BM_ReportDeepCallChains, or measured once when only the perf script comparison runs.
double g_syntheticSecondsPerSample = 0;

double reportSynthetic(const boost::intrusive_ptr<IJitLoader>& loader,
                       const boost::intrusive_ptr<ISymbolResolver>& resolver, std::unique_ptr<Report>& report,
                       benchmark::State* state) {
    if (state)
        state->PauseTiming();
    report = Report::create(loader, resolver, "bench");
    if (state)
        state->ResumeTiming();
    const double begin = threadCpuSeconds();
    for (u32_t pass = 0; pass < kPasses; ++pass) {
        MemoryBuffer buffer(syntheticText());
        std::istream in(&buffer);
        reportOver(*report, in);
    }
    writeViews(*report);
    return threadCpuSeconds() - begin;
}

void BM_ReportDeepCallChains(benchmark::State& state) {
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus().paths());
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    syntheticText();
    std::unique_ptr<Report> report;
    double seconds = 0;
    for (auto _ : state)
        seconds += reportSynthetic(loader, resolver, report, &state);
    const double samples = static_cast<double>(state.iterations()) * kSamples * kPasses;
    g_syntheticSecondsPerSample = seconds / samples;
    state.SetItemsProcessed(static_cast<std::int64_t>(samples));
    state.counters["goal"] = 1e6;
    state.counters["read_bound"] = readRate();
    // How the text resembles a real profile: addresses resolved, distinct stacks, JIT frames.
    const korvane_report::SampleCounts counts = report->counts();
    state.counters["locations"] = static_cast<double>(report->locations().size());
    state.counters["stacks"] = report->stacks().size();
    state.counters["jit_frames"] = static_cast<double>(counts.jitFrames) / static_cast<double>(counts.frames);
}
BENCHMARK(BM_ReportDeepCallChains)->Unit(benchmark::kMillisecond)->Iterations(3);

// perf record of a program 20 calls deep, then perf script's CPU time to print its
// samples beside the report's CPU time over that very text (none of it JIT code), and
// beside the report's time per sample over the synthetic text.
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
        writeViews(*report);
        reportTime = threadCpuSeconds() - begin;
        counts = report->counts();
    }
    if (g_syntheticSecondsPerSample == 0) {
        std::unique_ptr<Report> report;
        syntheticText();
        g_syntheticSecondsPerSample = reportSynthetic(loader, resolver, report, nullptr) / (kSamples * kPasses);
    }
    const double perfScriptPerSample = counts.samples ? perfScript / static_cast<double>(counts.samples) : 0;
    state.counters["samples"] = static_cast<double>(counts.samples);
    state.counters["depth"] = counts.samples ? static_cast<double>(counts.frames) / counts.samples : 0;
    state.counters["perf_script_s"] = perfScript;
    state.counters["report_s"] = reportTime;
    state.counters["report/perf_script"] = perfScript > 0 ? reportTime / perfScript : 0;
    state.counters["synthetic/perf_script"] =
        perfScriptPerSample > 0 ? g_syntheticSecondsPerSample / perfScriptPerSample : 0;
    state.counters["goal"] = 0.1;
}
BENCHMARK(BM_ReportBesidePerfScript)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
