// Record types of the .jit trace format and what each is, collector types.
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

// Value records hold one u32 after their type; sized records a u32 size and that many payload bytes.
enum record_framing_t { rfValue, rfSized };

enum record_kind_t { rkMagic, rkCollectorType, rkLoad, rkUpdate, rkInlineLoad, rkUpdateV2 };

struct RecordTypeInfo {
    RecordType type;
    const char* name;
    record_framing_t framing;
    record_kind_t kind;
    // 32 or 64 for records of one code width, else 0.
    unsigned width;
    // The layout of a load record, 0 to 3.
    unsigned version;
    // Logged as each record of the type is framed: at TRACE for value records, INFO for sized ones.
    const char* logText;
};

const RecordTypeInfo kRecordTypes[] = {
    {FunctionLoad32, "FunctionLoad32", rfSized, rkLoad, 32, 0, "JIT TRACE: MethodLoad"},
    {FunctionLoad64, "FunctionLoad64", rfSized, rkLoad, 64, 0, "JIT TRACE: MethodLoad"},
    {FunctionLoad32_v1, "FunctionLoad32_v1", rfSized, rkLoad, 32, 1, "JIT TRACE: MethodLoad"},
    {FunctionLoad64_v1, "FunctionLoad64_v1", rfSized, rkLoad, 64, 1, "JIT TRACE: MethodLoad"},
    {FunctionLoad32_v2, "FunctionLoad32_v2", rfSized, rkLoad, 32, 2, "JIT TRACE: MethodLoad"},
    {FunctionLoad64_v2, "FunctionLoad64_v2", rfSized, rkLoad, 64, 2, "JIT TRACE: MethodLoad"},
    {FunctionLoad32_v3, "FunctionLoad32_v3", rfSized, rkLoad, 32, 3, "JIT TRACE: MethodLoad"},
    {FunctionLoad64_v3, "FunctionLoad64_v3", rfSized, rkLoad, 64, 3, "JIT TRACE: MethodLoad"},
    {FunctionUpdate, "FunctionUpdate", rfSized, rkUpdate, 0, 3, "JIT TRACE: MethodUpdate"},
    {FunctionInlineLoad32, "FunctionInlineLoad32", rfSized, rkInlineLoad, 32, 0, "JIT TRACE: MethodInlineLoad"},
    {FunctionInlineLoad64, "FunctionInlineLoad64", rfSized, rkInlineLoad, 64, 0, "JIT TRACE: MethodInlineLoad"},
    {CollectorType, "CollectorType", rfValue, rkCollectorType, 0, 0, "JIT TRACE: CollectorType"},
    {FunctionUpdate_v2, "FunctionUpdate_v2", rfSized, rkUpdateV2, 0, 0, "JIT TRACE: MethodUpdate_v2"},
    {Magic, "Magic", rfValue, rkMagic, 0, 0, "JIT TRACE: Magic"},
};

// The entry of a type number, or null for a number that is no record type.
inline const RecordTypeInfo* findRecordType(std::uint32_t type) {
    for (const RecordTypeInfo& info : kRecordTypes) {
        if (info.type == type)
            return &info;
    }
    return nullptr;
}

} // namespace jittrace

enum collector_type_t : std::uint32_t { ctJitProfiler = 1 };

// Java is the one language value the decoders act on.
const std::uint32_t kLanguageJava = 5;

} // namespace korvane_3_10

#define KORVANE3_TRACE_JITTRACE(name) (::korvane_3_10::jittrace::name)

#endif
