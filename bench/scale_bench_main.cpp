// Loading, queries and memory on generated trace sets, each figure beside its bound from the same run.
#include "scale_probes.h"
#include "trace_set_writer.h"

#include "test_support.h"
#include "trace_builder.h"

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

#include <boost/filesystem/operations.hpp>

#include <fcntl.h>
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <new>
#include <sstream>

namespace {

std::atomic<std::uint64_t> g_allocations{0};

} // namespace

// Counted so that the query benchmarks can tell whether a query allocates.
void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace korvane_3_10;
using korvane_bench::ScaleProbes;
using korvane_bench::TraceSetShape;
using korvane_bench::TraceSetSummary;
using korvane_bench::TraceSetWriter;

const std::size_t kProbes = 1 << 16;
const double kGoalRecordsPerSecond = 500000;
const double kGoalLoaderShare = 0.2;
const double kGoalBytesPerMethod = 1024;
const double kGoalTranslateNs = 200;

struct Options {
    std::vector<std::uint32_t> methods{10000, 100000};
    std::vector<std::uint32_t> files{1, 4, 20, 100, 400};
    std::uint32_t filesMethods = 100000;
    std::string sets = (boost::filesystem::temp_directory_path() / "korvane-bench-traces").string();
};

Options g_options;

double cpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

std::string setDirectory(const TraceSetShape& shape) {
    std::ostringstream name;
    name << g_options.sets << "/m" << shape.methods << "-f" << shape.filesPerProcess << "-s" << shape.seed;
    return name.str();
}

// Written once per shape and kept between runs: the same shape gives the same bytes.
const TraceSetSummary& traceSet(const TraceSetShape& shape) {
    static std::map<std::string, TraceSetSummary> sets;
    const std::string directory = setDirectory(shape);
    auto known = sets.find(directory);
    if (known != sets.end())
        return known->second;
    TraceSetSummary summary;
    if (!TraceSetWriter::findWritten(shape, directory, summary)) {
        boost::filesystem::remove_all(directory);
        boost::filesystem::create_directories(directory);
        summary = TraceSetWriter::write(shape, directory);
    }
    return sets.emplace(directory, summary).first->second;
}

// The front ends over the set last asked for; one set at a time stays in memory.
struct LoadedSet {
    std::string directory;
    boost::intrusive_ptr<ISymbolResolver> resolver;
    std::unique_ptr<ScaleProbes> probes;
    boost::intrusive_ptr<IJitLoader> loader;
};

LoadedSet g_loaded;
std::map<std::string, double> g_createSeconds;

LoadedSet& loadedSet(const TraceSetShape& shape, boost::intrusive_ptr<ISymbolResolver> resolver = nullptr) {
    const std::string directory = setDirectory(shape);
    if (g_loaded.directory != directory) {
        g_loaded = LoadedSet();
        g_loaded.directory = directory;
    }
    if (resolver)
        g_loaded.resolver = resolver;
    if (!g_loaded.resolver)
        g_loaded.resolver = korvane_test::resolverOver({directory});
    if (!g_loaded.probes)
        g_loaded.probes.reset(
            new ScaleProbes(ScaleProbes::create(*g_loaded.resolver, traceSet(shape).files, kProbes, shape.seed)));
    return g_loaded;
}

// CPU seconds per byte that read() takes for the set's files, best of three passes.
double readSecondsPerByte(const TraceSetSummary& set) {
    std::vector<char> buffer(1 << 20);
    double best = 0;
    for (int pass = 0; pass < 3; ++pass) {
        const double start = cpuSeconds();
        for (const std::string& file : set.files) {
            const int descriptor = ::open(file.c_str(), O_RDONLY);
            while (descriptor >= 0 && ::read(descriptor, buffer.data(), buffer.size()) > 0) {
            }
            if (descriptor >= 0)
                ::close(descriptor);
        }
        const double seconds = cpuSeconds() - start;
        if (pass == 0 || seconds < best)
            best = seconds;
    }
    return best / double(set.bytes);
}

// Times ISymbolResolver::create; the last resolver stays for the queries that follow.
double timeCreate(benchmark::State& state, const TraceSetShape& shape) {
    const std::string directory = setDirectory(shape);
    boost::intrusive_ptr<ISymbolResolver> resolver;
    double seconds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        resolver.reset();
        state.ResumeTiming();
        const double start = cpuSeconds();
        resolver = korvane_test::resolverOver({directory});
        seconds += cpuSeconds() - start;
        benchmark::DoNotOptimize(resolver.get());
    }
    seconds /= double(state.iterations());
    g_createSeconds[directory] = seconds;
    loadedSet(shape, resolver);
    return seconds;
}

void BM_Create(benchmark::State& state, TraceSetShape shape) {
    const TraceSetSummary& set = traceSet(shape);
    const double readPerByte = readSecondsPerByte(set);
    const double seconds = timeCreate(state, shape);
    const double recordsPerSecond = double(set.records()) / seconds;
    state.counters["create_s"] = seconds;
    state.counters["records"] = double(set.records());
    state.counters["rec_per_s"] = recordsPerSecond;
    state.counters["goal_rec_per_s"] = kGoalRecordsPerSecond;
    state.counters["x_goal"] = recordsPerSecond / kGoalRecordsPerSecond;
    state.counters["MB_per_s"] = double(set.bytes) / seconds / 1e6;
    state.counters["read_MB_per_s"] = 1 / readPerByte / 1e6;
    state.counters["pct_of_read"] = 100 * readPerByte * double(set.bytes) / seconds;
}

void BM_FilesPerProcess(benchmark::State& state, TraceSetShape shape) {
    const TraceSetSummary& set = traceSet(shape);
    const double seconds = timeCreate(state, shape);
    state.counters["files"] = double(set.files.size());
    state.counters["create_s"] = seconds;
    state.counters["rec_per_s"] = double(set.records()) / seconds;
    TraceSetShape oneFile = shape;
    oneFile.filesPerProcess = 1;
    const auto base = g_createSeconds.find(setDirectory(oneFile));
    if (base != g_createSeconds.end())
        state.counters["x_1_file"] = seconds / base->second;
}

// The loader reads each process on its first query, without code bytes; judged
// against a full read of the same set by the resolver.
void BM_LoaderFirstQueries(benchmark::State& state, TraceSetShape shape) {
    const std::string directory = setDirectory(shape);
    const ScaleProbes& probes = *loadedSet(shape).probes;
    double seconds = 0;
    for (auto _ : state) {
        const double start = cpuSeconds();
        const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({directory});
        for (const ScaleProbes::PointProbe& probe : probes.firstProbes()) {
            jit_rva_t jitRva = 0;
            IModule::Ptr module;
            benchmark::DoNotOptimize(
                loader->resolveJitPoint(probe.time, probe.address, probe.pid, probe.hostId, &jitRva, module));
        }
        seconds += cpuSeconds() - start;
        state.PauseTiming();
        g_loaded.loader = loader;
        state.ResumeTiming();
    }
    seconds /= double(state.iterations());
    const double fullRead = g_createSeconds[directory];
    state.counters["loader_s"] = seconds;
    state.counters["full_read_s"] = fullRead;
    state.counters["share"] = fullRead > 0 ? seconds / fullRead : 0;
    state.counters["goal_share"] = kGoalLoaderShare;
}

// Runs the query over the probes, then the baseline over the same probes as often.
template <class Query, class Baseline>
void timeQueries(benchmark::State& state, std::size_t probeCount, Query query, Baseline baseline) {
    const std::size_t mask = probeCount - 1;
    std::size_t index = 0;
    std::size_t found = 0;
    const std::uint64_t allocationsBefore = g_allocations.load();
    const double start = cpuSeconds();
    for (auto _ : state)
        found += query(index++ & mask) ? 1 : 0;
    const double seconds = cpuSeconds() - start;
    const std::uint64_t allocations = g_allocations.load() - allocationsBefore;
    const std::size_t count = std::max<std::size_t>(index, 1);

    const double baselineStart = cpuSeconds();
    std::size_t baselineFound = 0;
    for (std::size_t step = 0; step < count; ++step)
        baselineFound += baseline(step & mask) ? 1 : 0;
    const double baselineSeconds = cpuSeconds() - baselineStart;
    benchmark::DoNotOptimize(baselineFound);

    state.counters["ns"] = seconds / double(count) * 1e9;
    state.counters["flat_ns"] = baselineSeconds / double(count) * 1e9;
    state.counters["x_flat"] = baselineSeconds > 0 ? seconds / baselineSeconds : 0;
    state.counters["found_pct"] = 100.0 * double(found) / double(count);
    state.counters["allocs_per_query"] = double(allocations) / double(count);
}

void BM_GetSymbol(benchmark::State& state, TraceSetShape shape) {
    LoadedSet& set = loadedSet(shape);
    ISymbolResolver& resolver = *set.resolver;
    const ScaleProbes& probes = *set.probes;
    const std::vector<jit_rva_t>& rvas = probes.rvaProbes();
    timeQueries(
        state, rvas.size(), [&](std::size_t index) { return resolver.getSymbol(rvas[index]) != nullptr; },
        [&](std::size_t index) { return probes.flatSymbol(rvas[index]) != nullptr; });
}

void BM_ResolveJitPoint(benchmark::State& state, TraceSetShape shape) {
    LoadedSet& set = loadedSet(shape);
    const ScaleProbes& probes = *set.probes;
    if (!set.loader) {
        set.loader = korvane_test::loaderOver({set.directory});
        for (const ScaleProbes::PointProbe& probe : probes.firstProbes()) {
            jit_rva_t jitRva = 0;
            IModule::Ptr module;
            set.loader->resolveJitPoint(probe.time, probe.address, probe.pid, probe.hostId, &jitRva, module);
        }
    }
    IJitLoader& loader = *set.loader;
    const std::vector<ScaleProbes::PointProbe>& points = probes.pointProbes();
    IModule::Ptr module;
    timeQueries(
        state, points.size(),
        [&](std::size_t index) {
            const ScaleProbes::PointProbe& probe = points[index];
            jit_rva_t jitRva = 0;
            return loader.resolveJitPoint(probe.time, probe.address, probe.pid, probe.hostId, &jitRva, module) ==
                   meSuccess;
        },
        [&](std::size_t index) { return probes.flatPoint(points[index]) != nullptr; });
}

void BM_TranslateToJitRva(benchmark::State& state, TraceSetShape shape) {
    LoadedSet& set = loadedSet(shape);
    ISymbolResolver& resolver = *set.resolver;
    const std::vector<ScaleProbes::TranslateProbe>& translations = set.probes->translateProbes();
    if (translations.empty()) {
        state.SkipWithError("no jit id of the set converts");
        return;
    }
    std::size_t index = 0;
    const double start = cpuSeconds();
    for (auto _ : state) {
        const ScaleProbes::TranslateProbe& probe = translations[index++ % translations.size()];
        jit_rva_t jitRva = 0;
        benchmark::DoNotOptimize(resolver.translateToJitRva(probe.jitId, probe.address, probe.file, &jitRva));
    }
    const double ns = (cpuSeconds() - start) / double(std::max<std::size_t>(index, 1)) * 1e9;
    state.counters["ns"] = ns;
    state.counters["goal_ns"] = kGoalTranslateNs;
    state.counters["x_goal"] = ns / kGoalTranslateNs;
}

std::uint64_t statusKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, std::strlen(field), field) == 0)
            return std::strtoull(line.c_str() + std::strlen(field), nullptr, 10);
    return 0;
}

// Heap in use and peak resident memory that create adds, in bytes, in a process of its own.
void measureCreateMemory(const std::string& directory) {
    const struct mallinfo2 before = ::mallinfo2();
    const double rssBefore = double(statusKilobytes("VmRSS:")) * 1024;
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver({directory});
    const struct mallinfo2 after = ::mallinfo2();
    std::printf("%.0f %.0f\n", double(after.uordblks + after.hblkhd) - double(before.uordblks + before.hblkhd),
                double(statusKilobytes("VmHWM:")) * 1024 - rssBefore);
}

// A fresh process of this program, so that neither the heap that earlier
// benchmarks left behind nor their peak hides what create takes.
bool measureInFreshProcess(const std::string& directory, double& heapBytes, double& peakBytes) {
    char self[4096];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return false;
    const std::string command = std::string(self, std::size_t(length)) + " --measure-memory=" + directory;
    FILE* child = ::popen(command.c_str(), "r");
    if (!child)
        return false;
    const bool read = std::fscanf(child, "%lf %lf", &heapBytes, &peakBytes) == 2;
    return ::pclose(child) == 0 && read;
}

void BM_Memory(benchmark::State& state, TraceSetShape shape) {
    const TraceSetSummary& set = traceSet(shape);
    double heapBytes = 0;
    double peakBytes = 0;
    for (auto _ : state) {
        if (!measureInFreshProcess(setDirectory(shape), heapBytes, peakBytes)) {
            state.SkipWithError("the child that measures could not report");
            return;
        }
    }
    const double methods = double(set.loadRecords);
    const double codePerMethod = double(set.codeBytes) / methods;
    state.counters["heap_B_per_method"] = heapBytes / methods;
    state.counters["code_B_per_method"] = codePerMethod;
    state.counters["beyond_code_B_per_method"] = heapBytes / methods - codePerMethod;
    state.counters["goal_B_per_method"] = kGoalBytesPerMethod;
    state.counters["peak_rss_B_per_method"] = peakBytes / methods;
    state.counters["trace_B_per_method"] = double(set.bytes) / methods;
}

// Only as many runs as a size can bear in a few minutes.
benchmark::IterationCount createIterations(std::uint32_t methods) {
    return std::max<benchmark::IterationCount>(1, 200000 / methods);
}

void registerBenchmarks() {
    for (const std::uint32_t methods : g_options.methods) {
        TraceSetShape shape;
        shape.methods = methods;
        const std::string size = "/" + std::to_string(methods);
        benchmark::RegisterBenchmark(("Create" + size).c_str(), BM_Create, shape)
            ->Iterations(createIterations(methods))
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("GetSymbol" + size).c_str(), BM_GetSymbol, shape);
        benchmark::RegisterBenchmark(("LoaderFirstQueries" + size).c_str(), BM_LoaderFirstQueries, shape)
            ->Iterations(createIterations(methods))
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("ResolveJitPoint" + size).c_str(), BM_ResolveJitPoint, shape);
        benchmark::RegisterBenchmark(("Memory" + size).c_str(), BM_Memory, shape)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    }
    const std::uint32_t mostFiles = g_options.files.empty() ? 0 : g_options.files.back();
    for (const std::uint32_t files : g_options.files) {
        TraceSetShape shape;
        shape.methods = g_options.filesMethods;
        shape.filesPerProcess = files;
        const std::string name = "/" + std::to_string(files);
        benchmark::RegisterBenchmark(("FilesPerProcess" + name).c_str(), BM_FilesPerProcess, shape)
            ->Iterations(createIterations(g_options.filesMethods))
            ->Unit(benchmark::kMillisecond);
        if (files == 4 || files == mostFiles)
            benchmark::RegisterBenchmark(("TranslateToJitRva" + name).c_str(), BM_TranslateToJitRva, shape);
    }
}

std::vector<std::uint32_t> numbers(const std::string& text) {
    std::vector<std::uint32_t> values;
    std::istringstream list(text);
    std::string item;
    while (std::getline(list, item, ','))
        if (!item.empty())
            values.push_back(static_cast<std::uint32_t>(std::strtoul(item.c_str(), nullptr, 10)));
    return values;
}

// Takes this program's own options out of the arguments; the rest go to the benchmark library.
// --methods=10000,100000 --files=1,4,20,100,400 --files-methods=100000 --sets=DIRECTORY
void takeOptions(int& argc, char** argv) {
    int kept = 1;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument.compare(0, 10, "--methods=") == 0)
            g_options.methods = numbers(argument.substr(10));
        else if (argument.compare(0, 8, "--files=") == 0)
            g_options.files = numbers(argument.substr(8));
        else if (argument.compare(0, 16, "--files-methods=") == 0)
            g_options.filesMethods = static_cast<std::uint32_t>(std::strtoul(argument.c_str() + 16, nullptr, 10));
        else if (argument.compare(0, 7, "--sets=") == 0)
            g_options.sets = argument.substr(7);
        else
            argv[kept++] = argv[index];
    }
    argc = kept;
}

} // namespace

int main(int argc, char** argv) {
    // The library logs nothing unless a host asks for it; the benchmarks measure that case.
    log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    if (argc == 2 && std::strncmp(argv[1], "--measure-memory=", 17) == 0) {
        measureCreateMemory(argv[1] + 17);
        return 0;
    }
    takeOptions(argc, argv);
    registerBenchmarks();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
