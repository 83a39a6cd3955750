// Method load records V0 to V3 as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::jit_rva_t;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::Width;

struct Version {
    const char* name;
    TraceWriter& (TraceWriter::*write)(const LoadRecord&, Width);
    bool isV3;     // keeps the raw id, and says why it refuses a record of empty ranges
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
    const Decoded decoded = decode(GetParam(), richLoadRecord(), withMode(korvane_3_10::dmModulesOnly));
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

TEST_P(LoadRecordTest, EqualRawIdsHashAlikeInOneProcessOnly) {
    const bool hashesRawId = !GetParam().isOldest;
    const LoadRecord first = richLoadRecord();
    LoadRecord second = first;
    second.ranges[0].startAddress += 0x10000;
    if (hashesRawId)
        second.className = "Other";
    const korvane_3_10::BaseMethodId id = decode(GetParam(), first).method->getMethodId();
    EXPECT_EQ(id, decode(GetParam(), second).method->getMethodId());
    DecoderSetup otherProcess;
    otherProcess.pid = kPid + 1;
    DecoderSetup otherHost;
    otherHost.hostId = kHostId + 1;
    // Without a raw id the names and the module make the id, wherever the code runs.
    EXPECT_EQ(!hashesRawId, id == decode(GetParam(), first, otherProcess).method->getMethodId());
    EXPECT_EQ(!hashesRawId, id == decode(GetParam(), first, otherHost).method->getMethodId());
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

TEST(LoadRecordV3Test, TheInlineFlagDecidesTheJitRvas) {
    const struct {
        std::uint8_t isInlined;
        std::vector<std::uint32_t> lengths;
        std::string rvas; // of the method, its regions, and its line tables
        jit_rva_t next;
    } cases[] = {
        {0, {0x40, 0x20}, "1000 1000 1040 1000", kStartJitRva + 0x60},
        {1, {0x40, 0x20}, "0 0 1 0", kStartJitRva},
        {1, {0, 0x20}, "0 1 1", kStartJitRva},
        {2, {0x40}, "0 0 0", kStartJitRva},
    };
    for (const auto& expected : cases) {
        LoadRecord load = richLoadRecord();
        load.isInlined = expected.isInlined;
        load.ranges.clear();
        for (std::uint32_t length : expected.lengths)
            load.ranges.push_back({0x7000 + 0x100 * load.ranges.size(), length, codeBytes(length)});
        TraceFile file(TraceWriter().loadV3(load));
        JitMethod::Ptr method(new JitMethod());
        korvane_bool_t isInlined = 0xee;
        ASSERT_TRUE(file.decoder().decodeMethodLoadRecordV3(file.next(), method, &isInlined));
        EXPECT_EQ(expected.isInlined, isInlined);
        std::ostringstream rvas;
        rvas << std::hex << method->getStartJitRva();
        for (const Region::Ptr& region : method->codeRegions())
            rvas << ' ' << region->startJitRva();
        rvas << ' ' << method->getLineNumberInfo().begin()->first.m_start;
        EXPECT_EQ(expected.rvas, rvas.str()) << "isInlined " << int(expected.isInlined);
        EXPECT_EQ(expected.next, file.decoder().nextJitRva()) << "isInlined " << int(expected.isInlined);
    }
}

TEST(LoadRecordV3Test, AFunctionUpdateDecodesLikeTheLoadOfTheSameBytes) {
    const Decoded load = decode(kV3, richLoadRecord());
    const Decoded update = decodeLast(TraceWriter().functionUpdate(richLoadRecord()));
    ASSERT_TRUE(update.accepted);
    EXPECT_EQ(describe(*load.method), describe(*update.method));
    EXPECT_EQ(load.method->getMethodId(), update.method->getMethodId());
    EXPECT_EQ(load.nextJitRva, update.nextJitRva);
}

} // namespace
