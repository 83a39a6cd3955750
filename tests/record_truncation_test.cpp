// Every record kind cut at every length, and counts far larger than their payload.
#include "trace_decoding_support.h"

#include "jitreader/jit_trace_format.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using korvane_3_10::JitFileDecoder;
using korvane_3_10::JitMethod;
using korvane_test::AssertionCounter;
using korvane_test::DecoderSetup;
using korvane_test::kStartJitRva;
using korvane_test::TraceFile;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;
namespace jt = korvane_3_10::jittrace;

typedef std::function<bool(JitFileDecoder&, const JitFileDecoder::Record&, JitMethod::Ptr&)> Decode;

enum class CutRule {
    // Fields past the payload refuse the record and leave the method and the jit RVA counter alone.
    Refused,
    // Fields past the payload are reported and read as zero; the record may still pass.
    Reported,
};

struct RecordKind {
    std::string name;
    std::uint32_t type;
    Bytes payload;
    CutRule rule;
    Decode decode;
};

void PrintTo(const RecordKind& kind, std::ostream* out) { *out << kind.name; }

const korvane_test::FakeRegionSearch& sharedFoundRegion() {
    static const korvane_test::FakeRegionSearch search = korvane_test::foundRegion();
    return search;
}

Bytes updateOfFoundRegion() {
    korvane_tracewriter::UpdateV2Record record = korvane_test::richUpdateRecord();
    record.startAddress = korvane_test::kRegionStart;
    record.length = 0x10;
    record.code = korvane_test::codeBytes(0x10, 0x70);
    return korvane_tracewriter::payloadUpdateV2(record);
}

std::vector<RecordKind> recordKinds() {
    using namespace korvane_tracewriter;
    const LoadRecord load = korvane_test::richLoadRecord();
    const Decode byType = korvane_test::decodeCodeRecord;
    return {
        {"V0", jt::FunctionLoad64, payloadV0(load), CutRule::Refused, byType},
        {"V1", jt::FunctionLoad32_v1, payloadV1(load), CutRule::Refused, byType},
        {"V2", jt::FunctionLoad64_v2, payloadV2(load), CutRule::Refused, byType},
        {"V3", jt::FunctionLoad64_v3, payloadV3(load), CutRule::Reported, byType},
        {"FunctionUpdate", jt::FunctionUpdate, payloadV3(load), CutRule::Reported, byType},
        {"inline", jt::FunctionInlineLoad64, payloadInline(korvane_test::richInlineRecord()), CutRule::Reported, byType},
        {"update V2 alone", jt::FunctionUpdate_v2, payloadUpdateV2(korvane_test::richUpdateRecord()),
         CutRule::Reported, byType},
        {"update V2 of a found region", jt::FunctionUpdate_v2, updateOfFoundRegion(), CutRule::Reported,
         [](JitFileDecoder& d, const JitFileDecoder::Record& r, JitMethod::Ptr& m) {
             d.setSearchCallback(&sharedFoundRegion());
             return d.decodeMethodUpdateRecordV2(r, m);
         }},
    };
}

struct Outcome {
    bool accepted = false;
    unsigned long assertions = 0;
    JitMethod::Ptr method;
    korvane_3_10::jit_rva_t nextJitRva = 0;
};

Outcome decodeCut(const RecordKind& kind, std::size_t length, DecoderSetup setup = DecoderSetup()) {
    TraceFile file(TraceWriter().sized(kind.type, Bytes(kind.payload.begin(), kind.payload.begin() + length)), setup);
    const JitFileDecoder::Record record = file.next();
    Outcome outcome;
    outcome.method.reset(new JitMethod());
    const AssertionCounter counter;
    outcome.accepted = kind.decode(file.decoder(), record, outcome.method);
    outcome.assertions = counter.reports();
    outcome.nextJitRva = file.decoder().nextJitRva();
    return outcome;
}

class TruncationTest : public ::testing::TestWithParam<RecordKind> {};

TEST_P(TruncationTest, TheWholePayloadDecodesWithoutReports) {
    const Outcome outcome = decodeCut(GetParam(), GetParam().payload.size());
    EXPECT_TRUE(outcome.accepted);
    EXPECT_EQ(0u, outcome.assertions);
}

TEST_P(TruncationTest, APayloadCutAnywhereIsRefusedOrReported) {
    const RecordKind& kind = GetParam();
    for (std::size_t length = 1; length < kind.payload.size(); ++length) {
        const Outcome outcome = decodeCut(kind, length);
        if (kind.rule == CutRule::Reported) {
            EXPECT_TRUE(!outcome.accepted || outcome.assertions > 0) << "cut to " << length;
            continue;
        }
        EXPECT_FALSE(outcome.accepted) << "cut to " << length;
        EXPECT_EQ(kStartJitRva, outcome.nextJitRva) << "cut to " << length;
        EXPECT_EQ(0u, outcome.method->regionCount()) << "cut to " << length;
        EXPECT_FALSE(outcome.method->getModule()) << "cut to " << length;
        EXPECT_TRUE(outcome.method->getLineNumberInfo().empty()) << "cut to " << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, TruncationTest, ::testing::ValuesIn(recordKinds()),
                         [](const ::testing::TestParamInfo<RecordKind>& info) {
                             std::string name = info.param.name;
                             for (char& c : name)
                                 if (c == ' ')
                                     c = '_';
                             return name;
                         });

TEST(TruncationTest, ModulesOnlyNeedsTheOldestFormsOnlyUpToTheirArchitecture) {
    const korvane_tracewriter::LoadRecord load = korvane_test::richLoadRecord();
    // Head, two ranges with their bytes, the module name and the architecture.
    const std::size_t needed = 14 + (16 + 0x40) + (16 + 0x18) + 2 + load.moduleName.size() + 2;
    const RecordKind v0 = recordKinds().front();
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    for (std::size_t length = 1; length <= v0.payload.size(); ++length) {
        const Outcome outcome = decodeCut(v0, length, setup);
        EXPECT_EQ(length >= needed, outcome.accepted) << "cut to " << length;
    }
}

// Overwrites the u32 at the given distance from the end of the payload.
Bytes withWordFromEnd(Bytes payload, std::size_t distance, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        payload[payload.size() - distance + i] = static_cast<std::uint8_t>(value >> (8 * i));
    return payload;
}

TEST(TruncationTest, CountsFarBeyondThePayloadAllocateNothing) {
    korvane_tracewriter::LoadRecord load = korvane_test::richLoadRecord();
    load.managedToSource.clear();
    load.nativeToManaged.clear();
    load.nativeToSource.clear();
    korvane_tracewriter::InlineRecord inlined = korvane_test::richInlineRecord();
    inlined.nativeToSource.clear();
    std::vector<RecordKind> kinds = recordKinds();
    const struct {
        std::size_t kind;
        Bytes payload;
        bool accepted;
    } cases[] = {
        {2, withWordFromEnd(korvane_tracewriter::payloadV2(load), 4, 0xffffffff), false},
        {3, withWordFromEnd(korvane_tracewriter::payloadV3(load), 4, 0xffffffff), true},
        {3, withWordFromEnd(korvane_tracewriter::payloadV3(load), 12, 0x15555556), true},
        {5, withWordFromEnd(korvane_tracewriter::payloadInline(inlined), 4, 0xffffffff), true},
    };
    for (const auto& inflated : cases) {
        RecordKind kind = kinds[inflated.kind];
        kind.payload = inflated.payload;
        const Outcome outcome = decodeCut(kind, kind.payload.size());
        EXPECT_EQ(inflated.accepted, outcome.accepted) << kind.name;
        EXPECT_TRUE(outcome.method->getLineNumberInfo().empty()) << kind.name;
        EXPECT_EQ(inflated.accepted, outcome.assertions > 0) << kind.name;
    }
}

TEST(TruncationTest, AnEmptyPayloadIsReportedByItsName) {
    const struct {
        std::size_t kind;
        const char* text;
    } cases[] = {{3, "traceSize"}, {5, "traceSize"}, {6, "traceLen"}};
    for (const auto& expected : cases) {
        const RecordKind kind = recordKinds()[expected.kind];
        JitFileDecoder::Record record;
        record.type = kind.type;
        korvane_test::LogCapture log;
        TraceFile file{TraceWriter()};
        JitMethod::Ptr method(new JitMethod());
        kind.decode(file.decoder(), record, method);
        EXPECT_EQ(1u, log.count(std::string("Assertion failed: ") + expected.text + " in ")) << kind.name;
    }
}

} // namespace
