// Code records as the decoder turns them into methods and regions: loads V0 to V3, FunctionUpdate,
// inline loads and updates V2.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::dmFull;
using korvane_3_10::dmModulesOnly;
using korvane_3_10::jit_rva_t;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::UpdateV2Record;
using korvane_tracewriter::Width;

struct Version {
    const char* name;
    TraceWriter& (TraceWriter::*write)(const LoadRecord&, Width);
    bool isV3;     // keeps the raw id, and tells of missing bytes and of lines past the code
    bool isOldest; // V0 and V1: hash names rather than the raw id, and stop behind the module in modules-only mode
};

const Version kV0{"V0", &TraceWriter::loadV0, false, true};
const Version kV1{"V1", &TraceWriter::loadV1, false, true};
const Version kV2{"V2", &TraceWriter::loadV2, false, false};
const Version kV3{"V3", &TraceWriter::loadV3, true, false};

void PrintTo(const Version& version, std::ostream* out) { *out << version.name; }

// Writes the record, behind a CollectorType record when the collector isn't 0, and decodes it.
Decoded decode(const Version& version, const LoadRecord& load, DecoderSetup setup = DecoderSetup(),
               std::uint32_t collector = 0) {
    TraceWriter trace;
    if (collector != 0)
        trace.collectorType(collector);
    return decodeLast((trace.*version.write)(load, Width::Bits64), setup);
}

class LoadRecordTest : public ::testing::TestWithParam<Version> {};

// All tables describe the first region, also when the method has more.
TEST_P(LoadRecordTest, DecodesEveryFieldOfARecord) {
    const Decoded decoded = decode(GetParam(), richLoadRecord());
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ(std::string("raw ") + (GetParam().isV3 ? "4d" : "0") +
                  "/0 token 6000012 load 5000 rva 1000\n"
                  "name ui::Widget::draw(int)\n"
                  "module /opt/app/lib/app.so arch 1\n"
                  "source Widget.cs c0ffee 2 3\n"
                  "region 7f0000001000+10 rva 1000 load 5000 pid 4242 host 3 bytes 101112131415161718191a1b1c1d1e1f\n"
                  "region 7f0000002000+8 rva 1010 load 5000 pid 4242 host 3 bytes 80818283\n"
                  "lines 1000+10 m2s 0-4:10 4-9:11 n2m 0-8:0 8-16:4 n2s 0-8:10 8-16:11\n",
              describe(*decoded.method));
    EXPECT_EQ(kStartJitRva + 0x18, decoded.nextJitRva);
    EXPECT_FALSE(decoded.method->getMethodId().isEmpty());
}

// Empty ranges take no region and no jit RVAs; a record of empty ranges only, or a line table without
// a range to describe, is refused untouched. V3 tells of missing bytes and of lines past the code.
TEST_P(LoadRecordTest, RangeShapesDecideRegionsAndJitRvas) {
    const struct {
        std::vector<std::uint32_t> lengths;
        std::uint32_t lineEnd; // of the one line, if not 0
        bool accepted;
        std::uint32_t regions;
        jit_rva_t next;
        std::string v3Error;
    } shapes[] = {
        {{0, 0x30}, 8, true, 1, kStartJitRva + 0x30, ""},
        {{0, 0}, 0, false, 0, kStartJitRva, "The bytes of the code are not supplied"},
        {{}, 0, true, 0, kStartJitRva, ""},
        {{}, 8, false, 0, kStartJitRva, ""},
        {{0x10}, 0x11, true, 1, kStartJitRva + 0x10,
         "Detected line number (start offset = 0, end offset = 0x11, src line = 0x5) that does not match to code "
         "range (ip range = 0x9000-0x9010)"},
    };
    for (const auto& shape : shapes) {
        SCOPED_TRACE(testing::Message() << shape.lengths.size() << " ranges, lines to " << shape.lineEnd);
        LoadRecord load = richLoadRecord();
        load.ranges.clear();
        for (std::uint32_t length : shape.lengths)
            load.ranges.push_back({0x9000 + 0x100 * load.ranges.size(), length, codeBytes(8)});
        load.managedToSource.clear();
        load.nativeToManaged.clear();
        load.nativeToSource.clear();
        if (shape.lineEnd != 0)
            load.nativeToSource = {{0, shape.lineEnd, 5}};
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = decode(GetParam(), load);
        EXPECT_EQ(shape.accepted, decoded.accepted);
        EXPECT_EQ(shape.regions, decoded.method->regionCount());
        EXPECT_EQ(shape.next, decoded.nextJitRva);
        EXPECT_EQ(shape.accepted && shape.lineEnd != 0, !decoded.method->getLineNumberInfo().empty());
        const std::size_t told = GetParam().isV3 ? 1 : 0;
        EXPECT_TRUE(shape.v3Error.empty() || log.count(shape.v3Error + ", at file: src/jitreader/") == told);
    }
}

// The oldest forms stop behind the module; the others decode in full.
TEST_P(LoadRecordTest, ModulesOnlyKeepsNoBytes) {
    const Decoded decoded = decode(GetParam(), richLoadRecord(), withMode(dmModulesOnly));
    ASSERT_TRUE(decoded.accepted);
    const std::string text = describe(*decoded.method);
    EXPECT_NE(std::string::npos, text.find("module /opt/app/lib/app.so arch 1\n")) << text;
    EXPECT_NE(std::string::npos, text.find("region 7f0000002000+8 rva 1010 load 5000 pid 4242 host 3 no bytes\n"));
    EXPECT_EQ(kStartJitRva + 0x18, decoded.nextJitRva);
    const bool stops = GetParam().isOldest;
    EXPECT_EQ(stops, decoded.method->getMethodId().isEmpty());
    EXPECT_EQ(stops, text.find("name \n") != std::string::npos);
    EXPECT_EQ(stops, text.find("source ") == std::string::npos);
    EXPECT_EQ(stops, text.find("lines ") == std::string::npos);
}

// The field behind a counted string is found whatever its length; a string too long is dropped.
TEST_P(LoadRecordTest, CountedStrings) {
    const std::pair<std::string, std::string> names[] = {{"", ""},
                                                         {std::string(511, 'm'), "C::" + std::string(511, 'm')},
                                                         {std::string(512, 'm'), ""},
                                                         {std::string("run\0away", 8), "C::run"}};
    for (const auto& name : names) {
        SCOPED_TRACE(name.first.size());
        LoadRecord load = richLoadRecord();
        load.methodName = name.first;
        load.className = "C";
        const JitMethod::Ptr method = decode(GetParam(), load).method;
        EXPECT_STREQ("C", method->getClassName());
        const std::string text = describe(*method);
        EXPECT_NE(std::string::npos, text.find("\nname " + name.second + "\n")) << text;
        EXPECT_NE(std::string::npos, text.find("source Widget.cs c0ffee 2 3\nregion")) << text;
        EXPECT_NE(std::string::npos, text.find("\nlines 1000+10")) << text;
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, LoadRecordTest, ::testing::Values(kV0, kV1, kV2, kV3),
                         [](const ::testing::TestParamInfo<Version>& info) { return std::string(info.param.name); });

// Java names are made readable in V3 only; module defaults and the bogus answer follow the version and collector.
TEST(LoadRecordNamesTest, NamesAndModules) {
    const struct {
        Version version;
        std::string module;
        std::uint16_t language;
        std::string className;
        std::uint32_t collector;
        std::string name;
        std::string described;
    } cases[] = {
        {kV0, "", 5, "A.B", 0, "A::B::charAt(I)C", "[Dynamic code] arch 2"},
        {kV1, "/x.so", 0, "C", 1, "C::charAt(I)C", "/x.so arch 2"},
        {kV2, "", 5, "Ljava/lang/String;", 0, "Ljava/lang/String;::charAt(I)C", "[Compiled Java code] arch 2 bogus"},
        {kV2, "", 3, "C", 0, "C::charAt(I)C", "[Dynamic code] arch 2 bogus"},
        {kV2, "/x.so", 5, "C", 1, "C::charAt(I)C", "/x.so arch 2"},
        {kV3, "", 5, "Ljava/lang/String;", 0, "java::lang::String::charAt(int)", "[Compiled Java code] arch 2 bogus"},
        {kV3, "", 1, "Ljava/lang/String;", 0, "java::lang::String::charAt(int)", "[Dynamic code] arch 2 bogus"},
        {kV3, "", 1, "L", 0, "L::charAt(I)C", "[Dynamic code] arch 2 bogus"},
        {kV3, "", 1, "java.lang.String", 0, "java::lang::String::charAt(I)C", "[Dynamic code] arch 2 bogus"},
        {kV3, "[Compiled Java code]", 0, "B", 0, "B::charAt(I)C", "[Compiled Java code] arch 2 bogus"},
        {kV3, "/x.so", 0, "C", 1, "C::charAt(I)C", "/x.so arch 2 bogus"},
        {kV3, "/x.so", 0, "C", 2, "C::charAt(I)C", "/x.so arch 2"},
    };
    for (const auto& expected : cases) {
        LoadRecord load = richLoadRecord();
        load.moduleName = expected.module;
        load.languageType = expected.language;
        load.className = expected.className;
        load.methodName = "charAt(I)C";
        load.architecture = 2;
        const std::string text = describe(*decode(expected.version, load, DecoderSetup(), expected.collector).method);
        EXPECT_NE(std::string::npos, text.find("\nname " + expected.name + "\nmodule " + expected.described + "\n"))
            << expected.version.name << " module '" << expected.module << "' language " << expected.language
            << " collector " << expected.collector << ":\n" << text;
    }
}

DecoderSetup searching(const FakeRegionSearch& search, korvane_3_10::decoding_mode_t mode = dmFull) {
    DecoderSetup setup = withMode(mode);
    setup.search = &search;
    return setup;
}

// An inline keeps its raw ids, one region without jit RVA, and its line table at jit RVA 0.
TEST(InlineRecordTest, DecodesTheInlineWithOneRegionAndNoJitRva) {
    for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        const Decoded decoded = decodeLast(TraceWriter().inlineLoad(richInlineRecord()), withMode(mode));
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ(std::string("raw 5b/4d token 0 load 5100 rva 0\n"
                              "name geo::Point::length()\n"
                              "module /opt/app/lib/app.so arch 1\n"
                              "source Point.cs  0 3\n"
                              "region 7f0000001008+8 rva 0 load 5100 pid 4242 host 3 ") +
                      (mode == dmFull ? "bytes 4041424344454647\n" : "no bytes\n") +
                      "lines 0+8 m2s n2m n2s 0-4:20 4-8:21\n",
                  describe(*decoded.method));
        EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
    }
}

TEST(InlineAndUpdateRecordTest, InvalidFieldsAreRefusedWithTheirValueBeforeAnySearch) {
    const auto inlineWith = [](void (*spoil)(InlineRecord&)) {
        InlineRecord record = richInlineRecord();
        spoil(record);
        return TraceWriter().inlineLoad(record);
    };
    const auto updateWith = [](void (*spoil)(UpdateV2Record&)) {
        UpdateV2Record record = richUpdateRecord();
        spoil(record);
        return TraceWriter().updateV2(record);
    };
    const std::pair<TraceWriter, std::string> refusals[] = {
        {inlineWith([](InlineRecord& r) { r.loadTime = 0; }), "Invalid load time: 0"},
        {inlineWith([](InlineRecord& r) { r.rangeCount = 2; }), "Invalid number of code regions: 0x2"},
        {inlineWith([](InlineRecord& r) { r.rangeCount = 0; }), "Invalid number of code regions: 0"},
        {inlineWith([](InlineRecord& r) { r.startAddress = 0; }), "Invalid start address of code range: 0"},
        {inlineWith([](InlineRecord& r) { r.length = 0; }), "Invalid size of code range: 0"},
        {inlineWith([](InlineRecord& r) { r.code.clear(); }), "Invalid number of code range's bytes: 0"},
        {updateWith([](UpdateV2Record& r) { r.loadTime = 0; }), "Invalid load time: 0"},
        {updateWith([](UpdateV2Record& r) { r.startAddress = 0; }), "Invalid start address of code range: 0"},
        {updateWith([](UpdateV2Record& r) { r.length = 0; }), "Invalid length of code range: 0"},
        {updateWith([](UpdateV2Record& r) { r.code.clear(); }), "Invalid number of code range's bytes: 0"},
    };
    for (const auto& refusal : refusals) {
        for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
            SCOPED_TRACE(refusal.second + " in mode " + std::to_string(mode));
            const FakeRegionSearch search = foundRegion();
            LogCapture log(log4cplus::ERROR_LOG_LEVEL);
            const Decoded decoded = decodeLast(refusal.first, searching(search, mode));
            EXPECT_FALSE(decoded.accepted);
            EXPECT_EQ(0u, decoded.method->regionCount());
            EXPECT_TRUE(search.asked.empty());
            EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
            EXPECT_EQ(1u, log.count(refusal.second + ", at file: "));
        }
    }
}

// Without a search the update is a method of its own: length and codeSize go on as they stand.
TEST(UpdateRecordTest, WithoutASearchTheRecordStandsAlone) {
    UpdateV2Record record = richUpdateRecord();
    record.code = {0xaa, 0xbb};
    const Decoded decoded = decodeLast(TraceWriter().updateV2(record));
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ("raw 0/0 token 0 load 6000 rva 1000\nname \nmodule [Dynamic code] arch 1 bogus\n"
              "region 7f0000001004+4 rva 0 load 6000 pid 4242 host 3 bytes aabb\n",
              describe(*decoded.method));
    EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
}

// The found region is copied with the new bytes and a new jit RVA range; it keeps its own bytes.
TEST(UpdateRecordTest, AFoundRegionIsCopiedWithTheNewBytesAndANewJitRvaRange) {
    for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        const FakeRegionSearch search = foundRegion();
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Decoded decoded = decodeLast(TraceWriter().updateV2(richUpdateRecord()), searching(search, mode));
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ((std::vector<std::vector<korvane_3_10::u64_t>>{{kRegionStart + 4, 0x6000, kPid, kHost}}),
                  search.asked);
        EXPECT_EQ(1u, log.count("Update range: 0x7f0000001004-0x7f0000001008, loadTime = 0x6000"));
        EXPECT_EQ(std::string("raw 4d/0 token 0 load 6000 rva 1000\nname \nmodule [Dynamic code] arch 1 bogus\n"
                              "region 7f0000001000+10 rva 1000 load 6000 pid 4242 host 3 ") +
                      (mode == dmFull ? "bytes 00010203aabbccdd08090a0b0c0d0e0f\n" : "no bytes\n"),
                  describe(*decoded.method));
        EXPECT_EQ(kStartJitRva + 0x10, decoded.nextJitRva);
        EXPECT_EQ(codeBytes(0x10, 0), bytesOf(search.m_region->getBytes()));
        EXPECT_EQ(mode == dmFull ? 1u : 0u, decoded.method->codeRegions()[0]->markupRanges().size());
    }
}

TEST(UpdateRecordTest, TheFoundRegionDecidesWhetherAnUpdateFits) {
    const struct {
        korvane_error_t searchResult;
        korvane_3_10::address_t startAddress;
        korvane_3_10::u32_t length;
        bool accepted;
        korvane_3_10::jit_rva_t next;
        std::string message;
    } cases[] = {
        {meSuccess, kRegionStart, 0x10, true, kStartJitRva + 0x10, ""},
        {meSuccess, kRegionStart, 0x11, false, kStartJitRva,
         "Couldn't update the detected range (0x7f0000001000-0x7f0000001010) because it's size is small"},
        {meNotFound, kRegionStart, 4, false, kStartJitRva, "Couldn't find a range to be updated"},
        // Only the lengths are compared; the region refuses the bytes, and the jit RVAs stay taken.
        {meSuccess, kRegionStart - 1, 2, false, kStartJitRva + 0x10, ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << expected.startAddress << " length " << expected.length);
        FakeRegionSearch search = foundRegion();
        search.m_result = expected.searchResult;
        UpdateV2Record record = richUpdateRecord();
        record.startAddress = expected.startAddress;
        record.length = expected.length;
        record.code = codeBytes(expected.length, 0x60);
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = decodeLast(TraceWriter().updateV2(record), searching(search));
        EXPECT_EQ(expected.accepted, decoded.accepted);
        EXPECT_EQ(expected.next, decoded.nextJitRva);
        EXPECT_TRUE(expected.message.empty() || log.count(expected.message + ", at file: ") == 1);
    }
}

} // namespace
