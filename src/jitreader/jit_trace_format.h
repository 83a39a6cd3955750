// Record type numbers and collector types of the .jit trace format.
#ifndef KORVANE_JITREADER_JIT_TRACE_FORMAT_H
#define KORVANE_JITREADER_JIT_TRACE_FORMAT_H

#include <cstdint>

namespace korvane_3_10 {
namespace jittrace {

enum RecordType : std::uint32_t {
    FunctionLoad32 = 0,
    FunctionLoad64 = 2,
    FunctionLoad32_v1 = 4,
    FunctionLoad64_v1 = 5,
    FunctionLoad32_v2 = 6,
    FunctionLoad64_v2 = 7,
    FunctionLoad32_v3 = 8,
    FunctionLoad64_v3 = 9,
    FunctionUpdate = 10,
    FunctionInlineLoad32 = 11,
    FunctionInlineLoad64 = 12,
    CollectorType = 13,
    FunctionUpdate_v2 = 14,
    Magic = 0x400000
};

} // namespace jittrace

enum collector_type_t : std::uint32_t { ctJitProfiler = 1 };

// Java is the one language value the decoders act on.
const std::uint32_t kLanguageJava = 5;

} // namespace korvane_3_10

#define KORVANE3_TRACE_JITTRACE(name) (::korvane_3_10::jittrace::name)

#endif
