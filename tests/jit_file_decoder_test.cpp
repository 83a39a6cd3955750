// Framing of .jit files: every result of getNextRecord, its messages, and the records before a failure.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using korvane_3_10::JitFileDecoder;
using korvane_test::LogCapture;
using korvane_test::TraceFile;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;
namespace jt = korvane_3_10::jittrace;

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

std::vector<FramingCase> framingCases() {
    const Bytes payload = korvane_tracewriter::payloadV3(korvane_test::richLoadRecord());
    const std::string content = "Couldn't read content of the jit trace";
    std::vector<FramingCase> cases = {
        {"empty file", TraceWriter(), 0, meEndOfFile, ""},
        {"three stray bytes", TraceWriter().magic().raw({1, 2, 3}), 1, meEndOfFile, ""},
        {"records then end", TraceWriter().magic().collectorType(1).loadV3(korvane_test::richLoadRecord()), 3,
         meEndOfFile, ""},
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

void PrintTo(const FramingCase& framing, std::ostream* out) { *out << framing.name; }

class FramingTest : public ::testing::TestWithParam<FramingCase> {};

TEST_P(FramingTest, DeliversRecordsBeforeTheEndAndEndsWithItsCode) {
    const FramingCase& framing = GetParam();
    LogCapture log;
    TraceFile file(framing.trace);
    for (int i = 0; i < framing.recordsBefore; ++i)
        file.next();
    JitFileDecoder::Record record;
    EXPECT_EQ(framing.end, file.decoder().getNextRecord(record));
    // A size word beyond the file is refused before the payload is allocated.
    EXPECT_LE(record.data.capacity(), framing.trace.size());
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    if (framing.error.empty()) {
        EXPECT_TRUE(errors.empty()) << errors.front();
        return;
    }
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors.front().find(framing.error + ", at file: src/jitreader/jit_file_decoder.cpp:"))
        << errors.front();
}

INSTANTIATE_TEST_SUITE_P(Files, FramingTest, ::testing::ValuesIn(framingCases()));

TEST(JitFileDecoderTest, RecordsCarryTheirOffsetTypeAndPayload) {
    const korvane_tracewriter::LoadRecord load = korvane_test::richLoadRecord();
    TraceFile file(TraceWriter().magic(0xdeadbeef).collectorType(7).loadV3(load).magic(0).collectorType(9));
    const JitFileDecoder::Record magic = file.next();
    EXPECT_EQ(0u, magic.offset);
    EXPECT_EQ(std::uint32_t(jt::Magic), magic.type);
    EXPECT_EQ(word(0xdeadbeef), Bytes(magic.data.begin(), magic.data.end()));
    EXPECT_EQ(8u, file.next().offset);
    EXPECT_EQ(7u, file.decoder().collectorType());
    const JitFileDecoder::Record record = file.next();
    EXPECT_EQ(16u, record.offset);
    EXPECT_EQ(std::uint32_t(jt::FunctionLoad64_v3), record.type);
    EXPECT_EQ(korvane_tracewriter::payloadV3(load), Bytes(record.data.begin(), record.data.end()));
    // A Magic of any value is framed; only the reader looks at where it stands.
    EXPECT_EQ(24u + record.data.size(), file.next().offset);
    file.next();
    EXPECT_EQ(9u, file.decoder().collectorType()) << "the last value read counts";
}

TEST(JitFileDecoderTest, EachRecordIsAnnouncedAtInfo) {
    const std::pair<std::uint32_t, const char*> announced[] = {
        {jt::FunctionLoad32, "MethodLoad"},        {jt::FunctionLoad64_v1, "MethodLoad"},
        {jt::FunctionLoad32_v2, "MethodLoad"},     {jt::FunctionLoad64_v3, "MethodLoad"},
        {jt::FunctionUpdate, "MethodUpdate"},      {jt::FunctionInlineLoad32, "MethodInlineLoad"},
        {jt::FunctionInlineLoad64, "MethodInlineLoad"}, {jt::FunctionUpdate_v2, "MethodUpdate_v2"},
    };
    for (const auto& expected : announced) {
        LogCapture log;
        TraceFile(TraceWriter().sized(expected.first, {0})).next();
        EXPECT_EQ(std::vector<std::string>{std::string("JIT TRACE: ") + expected.second},
                  log.messages(log4cplus::INFO_LOG_LEVEL))
            << "type " << expected.first;
    }
    LogCapture log;
    TraceFile file(TraceWriter().magic().collectorType(1));
    file.next();
    file.next();
    EXPECT_EQ(1u, log.count("JIT TRACE: Magic"));
    EXPECT_EQ(1u, log.count("JIT TRACE: CollectorType"));
    EXPECT_EQ(1u, log.count("Value: 1"));
    EXPECT_EQ(2u, log.count("ENTER: "));
    EXPECT_EQ(2u, log.count("EXIT:  "));
}

TEST(JitFileDecoderTest, AFileThatCannotBeOpenedShowsAtTheFirstRecord) {
    korvane_test::TempDir dir;
    LogCapture log;
    JitFileDecoder decoder(dir.file("missing/1.x.jit"), 1, 1, 1, korvane_3_10::dmFull);
    EXPECT_TRUE(log.contains("\njitPath: " + dir.file("missing/1.x.jit") + "\npid: 1\nhostId: 1"));
    EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
    JitFileDecoder::Record record;
    EXPECT_EQ(meFileNotOpen, decoder.getNextRecord(record));
    ASSERT_EQ(1u, log.messages(log4cplus::ERROR_LOG_LEVEL).size());
    EXPECT_EQ(0u, log.messages(log4cplus::ERROR_LOG_LEVEL).front().find("Couldn't open the jit file, at file: "));
}

} // namespace
