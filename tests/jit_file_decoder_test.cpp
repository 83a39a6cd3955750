// Framing of .jit files: every result of getNextRecord, its messages, and records before a failure.
#include "trace_decoding_support.h"

#include "jitreader/jit_trace_format.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

Bytes validV3Payload() { return korvane_tracewriter::payloadV3(korvane_test::richLoadRecord()); }

struct FramingCase {
    std::string name;
    TraceWriter trace;
    int recordsBefore;
    korvane_error_t end;
    // The one ERROR message expected, or empty when nothing may be logged at ERROR.
    std::string message;
};

std::vector<FramingCase> framingCases() {
    const Bytes payload = validV3Payload();
    const std::string content = "Couldn't read content of the jit trace";
    const std::string unknown = "Couldn't recognize type of the jit trace";
    std::vector<FramingCase> cases = {
        {"empty file", TraceWriter(), 0, meEndOfFile, ""},
        {"one stray byte", TraceWriter().magic().raw({1}), 1, meEndOfFile, ""},
        {"three stray bytes", TraceWriter().magic().raw({1, 2, 3}), 1, meEndOfFile, ""},
        {"magic value cut", TraceWriter().collectorType(1).magic().cutOff(1), 1, meMalformedRecord,
         "Couldn't process the magic trace"},
        {"collector value cut", TraceWriter().magic().collectorType(1).cutOff(3), 1, meMalformedRecord,
         "Couldn't process the collector type trace"},
        {"type 1", TraceWriter().magic().sized(1, {1, 2}), 1, meMalformedRecord, unknown},
        {"type 3", TraceWriter().magic().sized(3, {1, 2}), 1, meMalformedRecord, unknown},
        {"type 15", TraceWriter().magic().sized(15, {1, 2}), 1, meMalformedRecord, unknown},
        {"type next to magic", TraceWriter().magic().sized(jt::Magic + 1, {1, 2}), 1, meMalformedRecord, unknown},
        {"size word cut", TraceWriter().magic().raw(word(jt::FunctionLoad64_v3)).raw({8, 0}), 1, meMalformedRecord,
         "Couldn't read size of the jit trace"},
        {"type word only", TraceWriter().magic().raw(word(jt::FunctionInlineLoad64)), 1, meMalformedRecord,
         "Couldn't read size of the jit trace"},
        {"payload cut", TraceWriter().magic().loadV3(korvane_test::richLoadRecord()).cutOff(1), 1, meMalformedRecord,
         content},
        {"size word one beyond the file", TraceWriter().magic().sizedWithSizeWord(jt::FunctionLoad64_v3,
                                                                                  payload.size() + 1, payload),
         1, meMalformedRecord, content},
        {"size word at its maximum", TraceWriter().magic().sizedWithSizeWord(jt::FunctionLoad64_v3, 0xffffffff, payload),
         1, meMalformedRecord, content},
        {"records then end", TraceWriter().magic().collectorType(1).loadV3(korvane_test::richLoadRecord()), 3,
         meEndOfFile, ""},
    };
    for (std::uint32_t type : {0u, 2u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 14u})
        cases.push_back({"size 0 of type " + std::to_string(type), TraceWriter().magic().sized(type, {}), 1, meMalformedRecord, content});
    return cases;
}

void PrintTo(const FramingCase& framing, std::ostream* out) { *out << framing.name; }

class FramingTest : public ::testing::TestWithParam<FramingCase> {};

TEST_P(FramingTest, DeliversRecordsBeforeTheEndAndEndsWithItsCode) {
    const FramingCase& framing = GetParam();
    LogCapture log(log4cplus::TRACE_LOG_LEVEL);
    TraceFile file(framing.trace);
    for (int i = 0; i < framing.recordsBefore; ++i)
        file.next();
    JitFileDecoder::Record record;
    EXPECT_EQ(framing.end, file.decoder().getNextRecord(record));

    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    if (framing.message.empty()) {
        EXPECT_TRUE(errors.empty()) << errors.front();
        return;
    }
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors.front().find(framing.message + ", at file: src/jitreader/jit_file_decoder.cpp:"))
        << errors.front();
    // A size word beyond the file is refused before the payload is allocated.
    EXPECT_LE(record.data.capacity(), framing.trace.size());
}

INSTANTIATE_TEST_SUITE_P(Files, FramingTest, ::testing::ValuesIn(framingCases()),
                         [](const ::testing::TestParamInfo<FramingCase>& info) {
                             std::string name = std::to_string(info.index) + "_" + info.param.name;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c)))
                                     c = '_';
                             return name;
                         });

TEST(JitFileDecoderTest, RecordsCarryTheirOffsetTypeAndPayload) {
    const Bytes payload = validV3Payload();
    TraceFile file(TraceWriter()
                       .magic(0xdeadbeef)
                       .collectorType(7)
                       .loadV3(korvane_test::richLoadRecord())
                       .magic(0)
                       .collectorType(9));

    const JitFileDecoder::Record magic = file.next();
    EXPECT_EQ(0u, magic.offset);
    EXPECT_EQ(std::uint32_t(jt::Magic), magic.type);
    EXPECT_EQ(word(0xdeadbeef), Bytes(magic.data.begin(), magic.data.end()));

    const JitFileDecoder::Record collector = file.next();
    EXPECT_EQ(8u, collector.offset);
    EXPECT_EQ(std::uint32_t(jt::CollectorType), collector.type);
    EXPECT_EQ(7u, file.decoder().collectorType());

    const JitFileDecoder::Record load = file.next();
    EXPECT_EQ(16u, load.offset);
    EXPECT_EQ(std::uint32_t(jt::FunctionLoad64_v3), load.type);
    EXPECT_EQ(payload, Bytes(load.data.begin(), load.data.end()));

    // A Magic of any value is accepted; only the reader looks at where it stands.
    const JitFileDecoder::Record second = file.next();
    EXPECT_EQ(24u + payload.size(), second.offset);
    file.next();
    EXPECT_EQ(9u, file.decoder().collectorType()) << "the last value read counts";
    JitFileDecoder::Record end;
    EXPECT_EQ(meEndOfFile, file.decoder().getNextRecord(end));
}

TEST(JitFileDecoderTest, EachRecordTypeIsAnnouncedAtItsLevel) {
    const struct {
        std::uint32_t type;
        const char* text;
    } announced[] = {
        {jt::FunctionLoad32, "JIT TRACE: MethodLoad"},       {jt::FunctionLoad64, "JIT TRACE: MethodLoad"},
        {jt::FunctionLoad32_v1, "JIT TRACE: MethodLoad"},    {jt::FunctionLoad64_v1, "JIT TRACE: MethodLoad"},
        {jt::FunctionLoad32_v2, "JIT TRACE: MethodLoad"},    {jt::FunctionLoad64_v2, "JIT TRACE: MethodLoad"},
        {jt::FunctionLoad32_v3, "JIT TRACE: MethodLoad"},    {jt::FunctionLoad64_v3, "JIT TRACE: MethodLoad"},
        {jt::FunctionUpdate, "JIT TRACE: MethodUpdate"},     {jt::FunctionInlineLoad32, "JIT TRACE: MethodInlineLoad"},
        {jt::FunctionInlineLoad64, "JIT TRACE: MethodInlineLoad"}, {jt::FunctionUpdate_v2, "JIT TRACE: MethodUpdate_v2"},
    };
    for (const auto& expected : announced) {
        LogCapture log(log4cplus::TRACE_LOG_LEVEL);
        TraceFile file(TraceWriter().sized(expected.type, {0}));
        file.next();
        EXPECT_EQ(std::vector<std::string>{expected.text}, log.messages(log4cplus::INFO_LOG_LEVEL))
            << "type " << expected.type;
    }

    LogCapture log(log4cplus::TRACE_LOG_LEVEL);
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
    LogCapture log(log4cplus::TRACE_LOG_LEVEL);
    JitFileDecoder decoder(dir.file("missing/1.x.jit"), 1, 1, 1, korvane_3_10::dmFull);
    EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
    EXPECT_TRUE(log.contains("\njitPath: " + dir.file("missing/1.x.jit") + "\npid: 1\nhostId: 1"));

    JitFileDecoder::Record record;
    EXPECT_EQ(meFileNotOpen, decoder.getNextRecord(record));
    ASSERT_EQ(1u, log.messages(log4cplus::ERROR_LOG_LEVEL).size());
    EXPECT_EQ(0u, log.messages(log4cplus::ERROR_LOG_LEVEL).front().find("Couldn't open the jit file, at file: "));
}

} // namespace
