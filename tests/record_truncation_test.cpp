// Every record kind cut at every length, and counts far larger than their payload.
#include "trace_decoding_support.h"

#include <gtest/gtest.h>

namespace {

using korvane_3_10::JitFileDecoder;
using korvane_test::Decoded;
using korvane_test::DecoderSetup;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;
namespace jt = korvane_3_10::jittrace;

struct RecordKind {
    std::string name;
    std::uint32_t type;
    Bytes payload;
    // Fields past the payload refuse the record untouched; otherwise they are reported, read as zero,
    // and the record may still pass.
    bool refused;
    bool searched;
};

void PrintTo(const RecordKind& kind, std::ostream* out) { *out << kind.name; }

std::vector<RecordKind> recordKinds() {
    using namespace korvane_tracewriter;
    const LoadRecord load = korvane_test::richLoadRecord();
    UpdateV2Record wholeRegion = korvane_test::richUpdateRecord();
    wholeRegion.startAddress = korvane_test::kRegionStart;
    wholeRegion.length = 0x10;
    wholeRegion.code = korvane_test::codeBytes(0x10, 0x70);
    return {
        {"V0", jt::FunctionLoad64, payloadV0(load), true, false},
        {"V1", jt::FunctionLoad32_v1, payloadV1(load), true, false},
        {"V2", jt::FunctionLoad64_v2, payloadV2(load), true, false},
        {"V3", jt::FunctionLoad64_v3, payloadV3(load), false, false},
        {"FunctionUpdate", jt::FunctionUpdate, payloadV3(load), false, false},
        {"inline", jt::FunctionInlineLoad64, payloadInline(korvane_test::richInlineRecord()), false, false},
        {"update_V2_alone", jt::FunctionUpdate_v2, payloadUpdateV2(korvane_test::richUpdateRecord()), false, false},
        {"update_V2_of_a_found_region", jt::FunctionUpdate_v2, payloadUpdateV2(wholeRegion), false, true},
    };
}

Decoded decodeCut(const RecordKind& kind, std::size_t length, DecoderSetup setup = DecoderSetup()) {
    static const korvane_test::FakeRegionSearch search = korvane_test::foundRegion();
    setup.search = kind.searched ? &search : nullptr;
    const Bytes payload(kind.payload.begin(), kind.payload.begin() + static_cast<long>(length));
    return korvane_test::decodeLast(TraceWriter().sized(kind.type, payload), setup);
}

class TruncationTest : public ::testing::TestWithParam<RecordKind> {};

TEST_P(TruncationTest, APayloadCutAnywhereIsRefusedOrReported) {
    const RecordKind& kind = GetParam();
    const Decoded whole = decodeCut(kind, kind.payload.size());
    EXPECT_TRUE(whole.accepted);
    EXPECT_EQ(0u, whole.assertions);
    for (std::size_t length = 1; length < kind.payload.size(); ++length) {
        SCOPED_TRACE("cut to " + std::to_string(length));
        const Decoded cut = decodeCut(kind, length);
        if (!kind.refused) {
            EXPECT_TRUE(!cut.accepted || cut.assertions > 0);
            continue;
        }
        EXPECT_FALSE(cut.accepted);
        EXPECT_EQ(korvane_test::kStartJitRva, cut.nextJitRva);
        EXPECT_EQ(0u, cut.method->regionCount());
        EXPECT_FALSE(cut.method->getModule());
        EXPECT_TRUE(cut.method->getLineNumberInfo().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, TruncationTest, ::testing::ValuesIn(recordKinds()),
                         [](const ::testing::TestParamInfo<RecordKind>& info) { return info.param.name; });

TEST(TruncationTest, ModulesOnlyNeedsTheOldestFormsOnlyUpToTheirArchitecture) {
    const korvane_tracewriter::LoadRecord load = korvane_test::richLoadRecord();
    // Head, two ranges with their bytes, the module name and the architecture.
    const std::size_t needed = 14 + (16 + 0x10) + (16 + 4) + 2 + load.moduleName.size() + 2;
    const RecordKind v0 = recordKinds().front();
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    for (std::size_t length = 1; length <= v0.payload.size(); ++length)
        EXPECT_EQ(length >= needed, decodeCut(v0, length, setup).accepted) << "cut to " << length;
}

// Overwrites the u32 at the given distance from the end of the payload.
Bytes withWordFromEnd(Bytes payload, std::size_t distance, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
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
    const std::vector<RecordKind> kinds = recordKinds();
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
        SCOPED_TRACE(kind.name);
        kind.payload = inflated.payload;
        const Decoded decoded = decodeCut(kind, kind.payload.size());
        EXPECT_EQ(inflated.accepted, decoded.accepted);
        EXPECT_TRUE(decoded.method->getLineNumberInfo().empty());
        EXPECT_EQ(inflated.accepted, decoded.assertions > 0);
    }
}

TEST(TruncationTest, AnEmptyPayloadIsReportedByItsName) {
    const std::pair<std::uint32_t, const char*> cases[] = {
        {jt::FunctionLoad64_v3, "traceSize"}, {jt::FunctionInlineLoad64, "traceSize"}, {jt::FunctionUpdate_v2, "traceLen"}};
    korvane_test::TraceFile file{TraceWriter()};
    for (const auto& expected : cases) {
        JitFileDecoder::Record record;
        record.type = expected.first;
        korvane_test::LogCapture log;
        korvane_test::JitMethod::Ptr method(new korvane_test::JitMethod());
        korvane_test::decodeCodeRecord(file.decoder(), record, method);
        EXPECT_EQ(1u, log.count(std::string("Assertion failed: ") + expected.second + " in ")) << expected.first;
    }
}

} // namespace
