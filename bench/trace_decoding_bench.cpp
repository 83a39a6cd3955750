// Decoding of trace files: framing and payloads alone, and whole files read into a data manager.
#include "test_support.h"
#include "trace_builder.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_file_reader.h"

#include <log4cplus/logger.h>

#include <benchmark/benchmark.h>

namespace {

using korvane_3_10::JitDataManager;
using korvane_3_10::JitFileDecoder;

// One trace file of `count` Java methods of 256 bytes and 16 lines each, written once per size.
class TraceOfMethods {
public:
    explicit TraceOfMethods(std::uint32_t count) {
        korvane_tracewriter::TraceWriter trace = korvane_test::profilerTrace();
        for (std::uint32_t index = 0; index < count; ++index) {
            korvane_tracewriter::LoadRecord record =
                korvane_test::methodAt(index + 1, 0x7f0000000000 + 0x1000 * std::uint64_t(index), 0x100, 0x1000 + index,
                                       "process(Ljava/util/Map;I)V");
            record.className = "Lcom/example/orders/Processor;";
            record.sourceFileName = "Processor.java";
            record.moduleName.clear();
            record.languageType = korvane_3_10::kLanguageJava;
            trace.loadV3(record);
        }
        m_size = static_cast<std::int64_t>(trace.size());
        m_path = m_dir.write("bench.1.jit", trace);
        // The library logs nothing unless a host asks for it; the benchmarks measure that case.
        log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::WARN_LOG_LEVEL);
    }
    const std::string& path() const { return m_path; }
    std::int64_t size() const { return m_size; }

private:
    korvane_test::TempDir m_dir;
    std::string m_path;
    std::int64_t m_size;
};

void BM_DecodeRecords(benchmark::State& state) {
    const TraceOfMethods trace(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) {
        JitFileDecoder decoder(trace.path(), 1, 1, 1, korvane_3_10::dmFull);
        JitFileDecoder::Record record;
        while (decoder.getNextRecord(record) == meSuccess) {
            if (record.type != korvane_3_10::jittrace::FunctionLoad64_v3)
                continue;
            korvane_3_10::JitMethod::Ptr method(new korvane_3_10::JitMethod());
            benchmark::DoNotOptimize(decoder.decodeMethodLoadRecordV3(record, method, nullptr));
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * trace.size());
}
BENCHMARK(BM_DecodeRecords)->Arg(100)->Arg(2000);

void BM_ReadJitFile(benchmark::State& state) {
    const TraceOfMethods trace(static_cast<std::uint32_t>(state.range(0)));
    const korvane_3_10::decoding_mode_t mode = state.range(1) == 0 ? korvane_3_10::dmFull : korvane_3_10::dmModulesOnly;
    for (auto _ : state) {
        JitDataManager manager;
        JitFileDecoder decoder(trace.path(), 1, 1, 1, mode);
        decoder.setSearchCallback(&manager);
        benchmark::DoNotOptimize(korvane_3_10::JitFileReader::readJitFile(decoder, korvane_3_10::taAny, manager));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * trace.size());
}
BENCHMARK(BM_ReadJitFile)->Args({2000, 0})->Args({2000, 1});

} // namespace
