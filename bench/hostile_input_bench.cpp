// Growth of the resolver's load on inputs made to make it quadratic: deep inline chains, many inlines of
// one method, many loads of one method, and many one-method traces, each at n and 4n.
#include "trace_builder.h"

#include <benchmark/benchmark.h>

#include <boost/filesystem/operations.hpp>

#include <log4cplus/logger.h>

#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

namespace {

using namespace korvane_3_10;
using korvane_test::methodAt;
using korvane_test::TempDir;
using korvane_tracewriter::TraceWriter;

const u64_t kOuterStart = 0x7f0000100000;
const u32_t kOuterLength = 0x10000;

korvane_tracewriter::InlineRecord inlineNumber(u32_t k, u32_t id, u32_t parentId, u64_t start, u32_t length) {
    korvane_tracewriter::InlineRecord record = korvane_test::inlineAt(id, parentId, start, length, 10, k);
    record.code.assign(1, 0xcc);
    record.methodName = "inlined" + std::to_string(k);
    return record;
}

TraceWriter outerMethod() {
    korvane_tracewriter::LoadRecord record = methodAt(1, kOuterStart, kOuterLength, 10, "outer");
    record.ranges.front().code.assign(16, 0x90);
    record.nativeToSource = {{0, kOuterLength, 1}};
    return korvane_test::profilerTrace().loadV3(record);
}

// n inlines, each inside the one before, named by the ids of their parents.
void nestedInlines(const TempDir& dir, u32_t n) {
    TraceWriter trace = outerMethod();
    for (u32_t k = 1; k <= n; ++k)
        trace.inlineLoad(inlineNumber(k, 1000 + k, k == 1 ? 1 : 1000 + k - 1, kOuterStart + k, kOuterLength - 2 * k));
    dir.write("h.1.jit", trace);
}

// n inlines of two bytes side by side in one method.
void siblingInlines(const TempDir& dir, u32_t n) {
    TraceWriter trace = outerMethod();
    for (u32_t k = 0; k < n; ++k)
        trace.inlineLoad(inlineNumber(k, 1000 + k, 1, kOuterStart + 2 * k, 2));
    dir.write("h.1.jit", trace);
}

// n loads of one method, each at an address of its own with its own line table.
void reloadedMethod(const TempDir& dir, u32_t n) {
    TraceWriter trace = korvane_test::profilerTrace();
    for (u32_t k = 0; k < n; ++k)
        trace.loadV3(methodAt(1, kOuterStart + 0x100 * u64_t(k), 0x40, 10 + k, "again"));
    dir.write("h.1.jit", trace);
}

// n processes of one method each, in memory where the system has such a directory.
void oneMethodTraces(const TempDir& dir, u32_t n) {
    for (u32_t pid = 1; pid <= n; ++pid)
        dir.write("h." + std::to_string(pid) + ".jit",
                  korvane_test::profilerTrace().loadV3(
                      methodAt(1, 0x1000 + pid * 0x100, 0x40, 10, "m" + std::to_string(pid))));
}

boost::filesystem::path scratch() {
    return access("/dev/shm", W_OK | X_OK) == 0 ? boost::filesystem::path("/dev/shm")
                                                : boost::filesystem::temp_directory_path();
}

double secondsToLoad(const TempDir& dir) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(korvane_test::resolverOver({dir.str()}));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Loads the input at n and at 4n in each iteration; the growth of the time is shown beside the 4 of a
// linear load (a quadratic one shows about 16).
void measureGrowth(benchmark::State& state, const std::function<void(const TempDir&, u32_t)>& write) {
    log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const u32_t n = static_cast<u32_t>(state.range(0));
    const TempDir small(scratch()), large(scratch());
    write(small, n);
    write(large, 4 * n);
    double smallSeconds = 0, largeSeconds = 0;
    for (auto _ : state) {
        smallSeconds += secondsToLoad(small);
        largeSeconds += secondsToLoad(large);
    }
    state.counters["ms_at_n"] = 1000 * smallSeconds / state.iterations();
    state.counters["ms_at_4n"] = 1000 * largeSeconds / state.iterations();
    state.counters["growth"] = largeSeconds / smallSeconds;
    state.counters["linear_bound"] = 4;
}

void BM_NestedInlinesGrowth(benchmark::State& state) { measureGrowth(state, nestedInlines); }
BENCHMARK(BM_NestedInlinesGrowth)->Arg(4000)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_SiblingInlinesGrowth(benchmark::State& state) { measureGrowth(state, siblingInlines); }
BENCHMARK(BM_SiblingInlinesGrowth)->Arg(4000)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_ReloadedMethodGrowth(benchmark::State& state) { measureGrowth(state, reloadedMethod); }
BENCHMARK(BM_ReloadedMethodGrowth)->Arg(4000)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_OneMethodTracesGrowth(benchmark::State& state) { measureGrowth(state, oneMethodTraces); }
BENCHMARK(BM_OneMethodTracesGrowth)->Arg(2500)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace
