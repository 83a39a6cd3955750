// Load of a generated trace directory, and the per-sample queries of both front ends.
#include "trace_builder.h"

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

namespace {

using namespace korvane_3_10;
using korvane_test::Corpus;

const u32_t kProcesses = 4;
const u32_t kMethods = 2000;
// Every process replaces its first quarter of code at time 50, so that part of
// the address space has a history of two loads.
const u32_t kReplaced = kMethods / 4;

// Written once and shared by all benchmarks; logging is off as in production use.
const Corpus& corpus() {
    static const Corpus shared = [] {
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        return Corpus({"bench", kProcesses, kMethods, 0x80, 8, kReplaced});
    }();
    return shared;
}

void BM_LoadDirectory(benchmark::State& state) {
    corpus();
    for (auto _ : state)
        benchmark::DoNotOptimize(korvane_test::resolverOver(corpus().paths()));
    state.SetItemsProcessed(state.iterations() * kProcesses * (kMethods + kMethods / 8 + kReplaced));
}
BENCHMARK(BM_LoadDirectory)->Unit(benchmark::kMillisecond);

void BM_GetSymbol(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    std::vector<jit_rva_t> starts;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next())
        starts.push_back(walk.current()->getStartJitRva());
    std::size_t index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(resolver->getSymbol(starts[index] + 5));
        index = (index + 7919) % starts.size();
    }
}
BENCHMARK(BM_GetSymbol);

void BM_ResolveJitPointByAddress(benchmark::State& state) {
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus().paths());
    u32_t hostId = 0;
    loader->getHostIdByName("bench", &hostId);
    jit_rva_t jitRva = 0;
    IModule::Ptr module;
    for (u32_t process = 1; process <= kProcesses; ++process)
        loader->resolveJitPoint(20, corpus().addressOf(process, 1), process, hostId, &jitRva, module);
    u32_t step = 0;
    for (auto _ : state) {
        const u32_t process = step % kProcesses + 1;
        const address_t address = corpus().addressOf(process, (step * 7919) % kMethods) + 9;
        // Samples before and after the replacement, in split and whole pieces.
        const u64_t timestamp = step % 2 ? 20 : 60;
        benchmark::DoNotOptimize(loader->resolveJitPoint(timestamp, address, process, hostId, &jitRva, module));
        ++step;
    }
}
BENCHMARK(BM_ResolveJitPointByAddress);

void BM_TranslateToJitRva(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    jit_rva_t jitRva = 0;
    u32_t step = 0;
    for (auto _ : state) {
        const u32_t process = step % kProcesses + 1;
        const u32_t method = (step * 7919) % kMethods;
        benchmark::DoNotOptimize(resolver->translateToJitRva(method + 1, corpus().addressOf(process, method) + 3,
                                                             corpus().file(process).c_str(), &jitRva));
        ++step;
    }
}
BENCHMARK(BM_TranslateToJitRva);

} // namespace
