// Load of a generated trace directory, and the per-sample queries of both front ends.
#include "test_support.h"
#include "trace_builder.h"

#include <korvane/jitreader.h>

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

#include <memory>
#include <string>

namespace {

using namespace korvane_3_10;
using korvane_test::inlineAt;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

const u32_t kProcesses = 4;
const u32_t kMethods = 2000;
const u32_t kLength = 0x80;
// Every process replaces its first quarter of code at time 50, so that part of
// the address space has a history of two loads.
const u32_t kReplaced = kMethods / 4;

address_t addressOf(u32_t process, u32_t method) { return 0x1000000ull * process + kLength * method; }

// The directory is written once and shared by all benchmarks; logging is off
// as in production use.
class Corpus {
public:
    static const Corpus& instance() {
        static const Corpus corpus;
        return corpus;
    }

    std::vector<std::string> paths() const { return {m_dir.str()}; }
    const std::string& file(u32_t process) const { return m_files[process - 1]; }

private:
    Corpus() {
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        for (u32_t process = 1; process <= kProcesses; ++process) {
            korvane_tracewriter::TraceWriter trace = profilerTrace();
            for (u32_t method = 0; method < kMethods; ++method) {
                const std::string name = "p" + std::to_string(process) + "m" + std::to_string(method);
                trace.loadV3(methodAt(method + 1, addressOf(process, method), kLength, 10, name));
                if (method % 8 == 0)
                    trace.inlineLoad(
                        inlineAt(100000 + method, method + 1, addressOf(process, method) + 0x20, 0x20, 10, 7));
            }
            for (u32_t method = 0; method < kReplaced; ++method)
                trace.loadV3(methodAt(50000 + method, addressOf(process, method) + kLength / 2, kLength, 50, "late"));
            m_files.push_back(m_dir.write("bench." + std::to_string(process) + ".jit", trace));
        }
    }

    TempDir m_dir;
    std::vector<std::string> m_files;
};

boost::intrusive_ptr<ISymbolResolver> makeResolver() {
    PathList paths(Corpus::instance().paths());
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    return ISymbolResolver::create(paths.iterator(), noLocator);
}

void BM_LoadDirectory(benchmark::State& state) {
    Corpus::instance();
    for (auto _ : state)
        benchmark::DoNotOptimize(makeResolver());
    state.SetItemsProcessed(state.iterations() * kProcesses * (kMethods + kMethods / 8 + kReplaced));
}
BENCHMARK(BM_LoadDirectory)->Unit(benchmark::kMillisecond);

void BM_GetSymbol(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = makeResolver();
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
    PathList paths(Corpus::instance().paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(paths.iterator());
    u32_t hostId = 0;
    loader->getHostIdByName("bench", &hostId);
    jit_rva_t jitRva = 0;
    IModule::Ptr module;
    for (u32_t process = 1; process <= kProcesses; ++process)
        loader->resolveJitPoint(20, addressOf(process, 1), process, hostId, &jitRva, module);
    u32_t step = 0;
    for (auto _ : state) {
        const u32_t process = step % kProcesses + 1;
        const u32_t method = (step * 7919) % kMethods;
        // Samples before and after the replacement, in split and whole pieces.
        const u64_t timestamp = step % 2 ? 20 : 60;
        benchmark::DoNotOptimize(
            loader->resolveJitPoint(timestamp, addressOf(process, method) + 9, process, hostId, &jitRva, module));
        ++step;
    }
}
BENCHMARK(BM_ResolveJitPointByAddress);

void BM_TranslateToJitRva(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = makeResolver();
    const Corpus& corpus = Corpus::instance();
    jit_rva_t jitRva = 0;
    u32_t step = 0;
    for (auto _ : state) {
        const u32_t process = step % kProcesses + 1;
        const u32_t method = (step * 7919) % kMethods;
        benchmark::DoNotOptimize(resolver->translateToJitRva(method + 1, addressOf(process, method) + 3,
                                                             corpus.file(process).c_str(), &jitRva));
        ++step;
    }
}
BENCHMARK(BM_TranslateToJitRva);

} // namespace
