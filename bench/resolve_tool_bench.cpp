// korvane-jit resolve once the traces are loaded: samples per second from CSV text to CSV
// rows, beside the rate at which the same text can merely be read into samples.
#include "resolved_sample_writer.h"
#include "trace_builder.h"

#include "report/sample_file.h"

#include <benchmark/benchmark.h>

#include <log4cplus/logger.h>

#include <ctime>
#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_report::Sample;
using korvane_report::SampleFile;
using korvane_test::Corpus;

const u32_t kProcesses = 4;
const u32_t kMethods = 25000;
const u32_t kLength = 0x100;
const u32_t kSamples = 1000000;

const Corpus& corpus() {
    static const Corpus shared = [] {
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        return Corpus({"bench", kProcesses, kMethods, kLength, 8, kMethods / 4});
    }();
    return shared;
}

// A sample anywhere in the code of any process, before or after the replaced quarter
// changed hands; one in ten lies past the code.
const std::string& samplesCsv() {
    static const std::string text = [] {
        std::ostringstream out;
        out << SampleFile::kHeader << "\n" << std::hex;
        u64_t state = 1;
        for (u32_t i = 0; i < kSamples; ++i) {
            state = state * 6364136223846793005ull + 1442695040888963407ull;
            const u32_t pick = static_cast<u32_t>(state >> 33);
            const u32_t process = pick % kProcesses + 1;
            const u32_t method = pick / kProcesses % (kMethods + kMethods / 10);
            out << std::dec << (pick % 2 ? 20 : 60) << ",0x" << std::hex
                << corpus().addressOf(process, method) + pick % kLength << std::dec << "," << process << ",bench\n";
        }
        return out.str();
    }();
    return text;
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

std::vector<Sample> readSamples() {
    std::istringstream in(samplesCsv());
    std::ostringstream err;
    std::vector<Sample> samples;
    SampleFile::read(in, "bench", samples, err);
    return samples;
}

// Samples per CPU second at which the text is read into samples, and nothing else.
double readRate() {
    static const double rate = [] {
        samplesCsv();
        const double start = threadCpuSeconds();
        benchmark::DoNotOptimize(readSamples().size());
        return kSamples / (threadCpuSeconds() - start);
    }();
    return rate;
}

void BM_ResolveToolSamples(benchmark::State& state) {
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus().paths());
    samplesCsv();
    NullBuffer discard;
    std::ostream out(&discard);
    for (auto _ : state) {
        korvane_tool::ResolvedSampleWriter writer(*resolver, false, out);
        for (const Sample& sample : readSamples())
            benchmark::DoNotOptimize(writer.write(sample));
        writer.flush();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kSamples);
    state.counters["goal"] = 1e6;
    state.counters["read_bound"] = readRate();
}
BENCHMARK(BM_ResolveToolSamples)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace
