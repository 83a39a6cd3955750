// Framing of .jit files: every result of getNextRecord and its messages; and every record kind cut at
// every length, or with counts far larger than its payload.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::JitFileDecoder;

Bytes word(std::uint32_t value) {
    return Bytes{static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                 static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

struct FramingCase {
    std::string name;
    TraceWriter trace;
    int recordsBefore;
    korvane_error_t end;
    std::string error; // the one ERROR message expected, or none at ERROR
};

void PrintTo(const FramingCase& framing, std::ostream* out) { *out << framing.name; }

std::vector<FramingCase> framingCases() {
    const Bytes payload = korvane_tracewriter::payloadV3(richLoadRecord());
    const std::string content = "Couldn't read content of the jit trace";
    std::vector<FramingCase> cases = {
        {"empty file", TraceWriter(), 0, meEndOfFile, ""},
        {"three stray bytes", TraceWriter().magic().raw({1, 2, 3}), 1, meEndOfFile, ""},
        {"records then end", TraceWriter().magic().collectorType(1).loadV3(richLoadRecord()), 3, meEndOfFile, ""},
        {"magic value cut", TraceWriter().collectorType(1).magic().cutOff(1), 1, meMalformedRecord,
         "Couldn't process the magic trace"},
        {"collector value cut", TraceWriter().magic().collectorType(1).cutOff(3), 1, meMalformedRecord,
         "Couldn't process the collector type trace"},
        {"size word cut", TraceWriter().magic().raw(word(jt::FunctionLoad64_v3)).raw({8, 0}), 1, meMalformedRecord,
         "Couldn't read size of the jit trace"},
        {"size word one beyond the file",
         TraceWriter().magic().sizedWithSizeWord(jt::FunctionLoad64_v3, payload.size() + 1, payload), 1,
         meMalformedRecord, content},
        {"size word at its maximum", TraceWriter().magic().sizedWithSizeWord(jt::FunctionLoad64_v3, ~0u, payload), 1,
         meMalformedRecord, content},
    };
    for (std::uint32_t type : {1u, 3u, 15u, jt::Magic + 1})
        cases.push_back({"type " + std::to_string(type), TraceWriter().magic().sized(type, {1, 2}), 1,
                         meMalformedRecord, "Couldn't recognize type of the jit trace"});
    for (std::uint32_t type : {0u, 2u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 14u})
        cases.push_back({"size 0 of type " + std::to_string(type), TraceWriter().magic().sized(type, {}), 1,
                         meMalformedRecord, content});
    return cases;
}

class FramingTest : public ::testing::TestWithParam<FramingCase> {};

TEST_P(FramingTest, DeliversRecordsBeforeTheEndAndEndsWithItsCode) {
    LogCapture log;
    TraceFile file(GetParam().trace);
    for (int i = 0; i < GetParam().recordsBefore; ++i)
        file.next();
    JitFileDecoder::Record record;
    EXPECT_EQ(GetParam().end, file.decoder().getNextRecord(record));
    // A size word beyond the file is refused before the payload is allocated.
    EXPECT_LE(record.data.capacity(), GetParam().trace.size());
    std::vector<std::string> errors;
    for (const std::string& error : log.messages(log4cplus::ERROR_LOG_LEVEL))
        errors.push_back(error.substr(0, error.rfind(':')));
    const std::string expected = GetParam().error + ", at file: src/jitreader/jit_file_decoder.cpp";
    EXPECT_EQ(GetParam().error.empty() ? std::vector<std::string>() : std::vector<std::string>{expected}, errors);
}

INSTANTIATE_TEST_SUITE_P(Files, FramingTest, ::testing::ValuesIn(framingCases()));

TEST(JitFileDecoderTest, AFileThatCannotBeOpenedShowsAtTheFirstRecord) {
    TempDir dir;
    LogCapture log;
    JitFileDecoder decoder(dir.file("missing/1.x.jit"), 1, 1, 1, korvane_3_10::dmFull);
    EXPECT_TRUE(log.contains("\njitPath: " + dir.file("missing/1.x.jit") + "\npid: 1\nhostId: 1"));
    EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
    JitFileDecoder::Record record;
    EXPECT_EQ(meFileNotOpen, decoder.getNextRecord(record));
    ASSERT_EQ(1u, log.messages(log4cplus::ERROR_LOG_LEVEL).size());
    EXPECT_EQ(0u, log.messages(log4cplus::ERROR_LOG_LEVEL).front().find("Couldn't open the jit file, at file: "));
}

struct RecordKind {
    std::string name;
    std::uint32_t type;
    Bytes payload;
    // Fields past the payload refuse the record untouched; otherwise they are reported,
    // read as zero, and the record may still pass.
    bool refused;
    bool searched; // updates find the region of foundRegion()
};

void PrintTo(const RecordKind& kind, std::ostream* out) { *out << kind.name; }

std::vector<RecordKind> recordKinds() {
    using namespace korvane_tracewriter;
    korvane_tracewriter::UpdateV2Record wholeRegion = richUpdateRecord();
    wholeRegion.startAddress = kRegionStart;
    wholeRegion.length = 0x10;
    return {{"V0", jt::FunctionLoad64, payloadV0(richLoadRecord()), true, false},
            {"V1", jt::FunctionLoad32_v1, payloadV1(richLoadRecord()), true, false},
            {"V2", jt::FunctionLoad64_v2, payloadV2(richLoadRecord()), true, false},
            {"V3", jt::FunctionLoad64_v3, payloadV3(richLoadRecord()), false, false},
            {"FunctionUpdate", jt::FunctionUpdate, payloadV3(richLoadRecord()), false, false},
            {"inline", jt::FunctionInlineLoad64, payloadInline(richInlineRecord()), false, false},
            {"update_V2_alone", jt::FunctionUpdate_v2, payloadUpdateV2(richUpdateRecord()), false, false},
            {"update_V2_of_a_found_region", jt::FunctionUpdate_v2, payloadUpdateV2(wholeRegion), false, true}};
}

// Decodes the payload cut to the length.
Decoded decodeCut(const RecordKind& kind, std::size_t length, DecoderSetup setup = DecoderSetup()) {
    static const FakeRegionSearch search = foundRegion();
    setup.search = kind.searched ? &search : nullptr;
    const Bytes payload(kind.payload.begin(), kind.payload.begin() + static_cast<long>(length));
    return decodeLast(TraceWriter().sized(kind.type, payload), setup);
}

class TruncationTest : public ::testing::TestWithParam<RecordKind> {};

// However far a field reaches past the cut, the record says so once.
TEST_P(TruncationTest, APayloadCutAnywhereIsRefusedOrReportedOnce) {
    const RecordKind& kind = GetParam();
    const Decoded whole = decodeCut(kind, kind.payload.size());
    EXPECT_TRUE(whole.accepted);
    EXPECT_EQ(0u, whole.assertions);
    for (std::size_t length = 1; length < kind.payload.size(); ++length) {
        LogCapture log;
        const Decoded cut = decodeCut(kind, length);
        if (kind.refused)
            EXPECT_TRUE(!cut.accepted && cut.nextJitRva == kStartJitRva &&
                        describe(*cut.method) == describe(JitMethod()))
                << "cut to " << length << ":\n" << describe(*cut.method);
        else
            EXPECT_TRUE(!cut.accepted || cut.assertions > 0) << "cut to " << length;
        EXPECT_GE(1u, log.count("Assertion failed: bytesRead")) << "cut to " << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, TruncationTest, ::testing::ValuesIn(recordKinds()),
                         [](const ::testing::TestParamInfo<RecordKind>& info) { return info.param.name; });

TEST(TruncationTest, ModulesOnlyNeedsTheOldestFormsOnlyUpToTheirArchitecture) {
    // Head, two ranges with their bytes, the module name and the architecture.
    const std::size_t needed = 14 + (16 + 0x10) + (16 + 4) + 2 + richLoadRecord().moduleName.size() + 2;
    const RecordKind v0 = recordKinds().front();
    for (std::size_t length = 1; length <= v0.payload.size(); ++length)
        EXPECT_EQ(length >= needed, decodeCut(v0, length, withMode(korvane_3_10::dmModulesOnly)).accepted) << length;
}

// Overwrites the u32 at the given distance from the end of the payload.
Bytes withWordFromEnd(Bytes payload, std::size_t distance, std::uint32_t value) {
    const Bytes bytes = word(value);
    std::copy(bytes.begin(), bytes.end(), payload.end() - static_cast<long>(distance));
    return payload;
}

TEST(TruncationTest, CountsFarBeyondThePayloadAllocateNothing) {
    korvane_tracewriter::LoadRecord load = richLoadRecord();
    load.managedToSource.clear();
    load.nativeToManaged.clear();
    load.nativeToSource.clear();
    korvane_tracewriter::InlineRecord inlined = richInlineRecord();
    inlined.nativeToSource.clear();
    const struct {
        std::uint32_t type;
        Bytes payload;
        bool accepted; // and reported
    } cases[] = {
        {jt::FunctionLoad64_v2, withWordFromEnd(korvane_tracewriter::payloadV2(load), 4, 0xffffffff), false},
        {jt::FunctionLoad64_v3, withWordFromEnd(korvane_tracewriter::payloadV3(load), 4, 0xffffffff), true},
        {jt::FunctionLoad64_v3, withWordFromEnd(korvane_tracewriter::payloadV3(load), 12, 0x15555556), true},
        {jt::FunctionInlineLoad64, withWordFromEnd(korvane_tracewriter::payloadInline(inlined), 4, 0xffffffff), true},
    };
    for (const auto& inflated : cases) {
        const Decoded decoded = decodeLast(TraceWriter().sized(inflated.type, inflated.payload));
        EXPECT_EQ(inflated.accepted, decoded.accepted) << inflated.type;
        EXPECT_TRUE(decoded.method->getLineNumberInfo().empty()) << inflated.type;
        EXPECT_EQ(inflated.accepted, decoded.assertions > 0) << inflated.type;
    }
}

// One set of fields serves every load record of a decoder, of any version: a record decodes alike
// whether a record with every field came before it or one with the same ranges and nothing else.
TEST(JitFileDecoderTest, ALoadRecordDecodesAlikeWhateverCameBefore) {
    using korvane_tracewriter::LoadRecord;
    using korvane_tracewriter::Width;
    LoadRecord plain = richLoadRecord();
    plain.moduleName = plain.methodName = plain.className = plain.sourceFileName = plain.checksum = "";
    plain.managedToSource.clear();
    plain.nativeToManaged.clear();
    plain.nativeToSource.clear();
    LoadRecord bare = plain;
    bare.ranges.clear();
    typedef TraceWriter& (TraceWriter::*Load)(const LoadRecord&, Width);
    const Load loads[] = {&TraceWriter::loadV0, &TraceWriter::loadV1, &TraceWriter::loadV2, &TraceWriter::loadV3};
    for (korvane_3_10::decoding_mode_t mode : {korvane_3_10::dmFull, korvane_3_10::dmModulesOnly}) {
        for (Load first : loads) {
            for (Load load : loads) {
                for (const LoadRecord& second : {plain, bare}) {
                    TraceWriter afterRich;
                    (afterRich.*first)(richLoadRecord(), Width::Bits64);
                    (afterRich.*load)(second, Width::Bits64);
                    TraceWriter afterPlain;
                    (afterPlain.*first)(plain, Width::Bits64);
                    (afterPlain.*load)(second, Width::Bits64);
                    const Decoded expected = decodeLast(afterPlain, withMode(mode));
                    const Decoded decoded = decodeLast(afterRich, withMode(mode));
                    EXPECT_EQ(expected.accepted, decoded.accepted) << mode;
                    EXPECT_EQ(describe(*expected.method), describe(*decoded.method)) << mode;
                }
            }
        }
    }
}

} // namespace
