// Decoding of trace files: framing and payloads alone, and whole files read into a data manager.
#include "test_support.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_file_reader.h"

#include <log4cplus/logger.h>

#include <benchmark/benchmark.h>

namespace {

using korvane_3_10::JitDataManager;
using korvane_3_10::JitFileDecoder;
using korvane_3_10::JitFileReader;
using korvane_3_10::JitMethod;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

// A V3 record of a Java method with one 256-byte range and a 16-entry line table.
LoadRecord javaMethod(std::uint32_t index) {
    LoadRecord record;
    record.methodId = index + 1;
    record.methodToken = index;
    record.loadTime = 0x1000 + index;
    record.ranges = {{0x7f0000000000 + 0x1000 * std::uint64_t(index), 0x100,
                      korvane_tracewriter::Bytes(0x100, 0x90)}};
    record.methodName = "process(Ljava/util/Map;I)V";
    record.className = "Lcom/example/orders/Processor;";
    record.sourceFileName = "Processor.java";
    record.languageType = 5;
    for (std::uint32_t line = 0; line < 16; ++line)
        record.nativeToSource.push_back({line * 16, line * 16 + 16, 100 + line});
    return record;
}

// One trace file of `count` methods, written once per size.
class TraceOfMethods {
public:
    explicit TraceOfMethods(std::uint32_t count) {
        TraceWriter trace;
        trace.magic().collectorType(1);
        for (std::uint32_t index = 0; index < count; ++index)
            trace.loadV3(javaMethod(index));
        m_size = trace.size();
        m_path = m_dir.write("bench.1.jit", trace);
    }
    const std::string& path() const { return m_path; }
    std::size_t size() const { return m_size; }

private:
    korvane_test::TempDir m_dir;
    std::string m_path;
    std::size_t m_size;
};

// The library logs nothing unless a host asks for it; benchmarks measure that case.
void quietLibrary() {
    log4cplus::Logger::getInstance("korvane.jitreader").setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

void BM_DecodeRecords(benchmark::State& state) {
    quietLibrary();
    const TraceOfMethods trace(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) {
        JitFileDecoder decoder(trace.path(), 1, 1, 1, korvane_3_10::dmFull);
        JitFileDecoder::Record record;
        while (decoder.getNextRecord(record) == meSuccess) {
            if (record.type != korvane_3_10::jittrace::FunctionLoad64_v3)
                continue;
            JitMethod::Ptr method(new JitMethod());
            benchmark::DoNotOptimize(decoder.decodeMethodLoadRecordV3(record, method, nullptr));
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(trace.size()));
}
BENCHMARK(BM_DecodeRecords)->Arg(100)->Arg(2000);

void BM_ReadJitFile(benchmark::State& state) {
    quietLibrary();
    const TraceOfMethods trace(static_cast<std::uint32_t>(state.range(0)));
    const korvane_3_10::decoding_mode_t mode =
        state.range(1) == 0 ? korvane_3_10::dmFull : korvane_3_10::dmModulesOnly;
    for (auto _ : state) {
        JitDataManager manager;
        JitFileDecoder decoder(trace.path(), 1, 1, 1, mode);
        decoder.setSearchCallback(&manager);
        benchmark::DoNotOptimize(JitFileReader::readJitFile(decoder, korvane_3_10::taAny, manager));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(trace.size()));
}
BENCHMARK(BM_ReadJitFile)->Args({2000, 0})->Args({2000, 1});

} // namespace
