// Per-sample queries of the method model, and the per-record shaping of names.
#include "jitreader/java_signature_parser.h"
#include "model_builders.h"

#include <benchmark/benchmark.h>

namespace {

using namespace korvane_test;
using korvane_3_10::u32_t;

// A method of `lines` native-to-managed and managed-to-source entries, 4 bytes each.
JitMethod::Ptr methodWithLines(u32_t lines) {
    const JitMethod::Ptr method = methodOf(1).named("java.lang.String", "charAt(int)");
    std::vector<korvane_line_number_entry> nativeToManaged;
    std::vector<korvane_line_number_entry> managedToSource;
    for (u32_t index = 0; index < lines; ++index) {
        nativeToManaged.push_back(entry(index * 4, index * 4 + 4, index));
        managedToSource.push_back(entry(index, index + 1, 100 + index));
    }
    const korvane_3_10::Range key = {0x10000, lines * 4};
    method->addLineNumberInfo(ltNativeToManaged, nativeToManaged, key);
    method->addLineNumberInfo(ltManagedToSource, managedToSource, key);
    method->addCodeRegion(regionAt(0x7f000000, lines * 4).rva(0x10000));
    return method;
}

void BM_SourceLocation(benchmark::State& state) {
    const u32_t lines = static_cast<u32_t>(state.range(0));
    const JitMethod::Ptr method = methodWithLines(lines);
    u32_t offset = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(method->getSourceLocation(0x10000 + offset));
        offset = (offset + 4 * 37) % (lines * 4);
    }
}
BENCHMARK(BM_SourceLocation)->Arg(16)->Arg(256)->Arg(4096);

void BM_VirtualAddress(benchmark::State& state) {
    const JitMethod::Ptr method = methodWithLines(64);
    korvane_3_10::address_t address = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(method->getVirtualAddress(0x10010, &address));
}
BENCHMARK(BM_VirtualAddress);

void BM_InlineIndex(benchmark::State& state) {
    const u32_t children = static_cast<u32_t>(state.range(0));
    const Region::Ptr parent = regionAt(0x1000, children * 0x10).rva(0x500);
    for (u32_t index = 0; index < children; ++index)
        parent->addChildRegion(regionAt(0x1000 + index * 0x10, 0x10).rva(0x500 + index * 0x10), methodOf(index + 2));
    for (auto _ : state)
        benchmark::DoNotOptimize(parent->getInlineIndex(0x500 + (children - 1) * 0x10));
}
BENCHMARK(BM_InlineIndex)->Arg(4)->Arg(64);

void BM_ShapeJavaNames(benchmark::State& state) {
    for (auto _ : state) {
        korvane_3_10::BaseMethodInfo info;
        info.setClassName(korvane_3_10::JavaSignatureParser::parseClassName("Ljava/util/HashMap;"));
        info.setMethodName(korvane_3_10::JavaSignatureParser::parseMethodName(
            "putVal(ILjava/lang/Object;Ljava/lang/Object;ZZ)Ljava/lang/Object;"));
        benchmark::DoNotOptimize(info.m_names.qualifiedText());
    }
}
BENCHMARK(BM_ShapeJavaNames);

} // namespace
