// Method load records V0 to V3 as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using korvane_3_10::JitFileDecoder;
using korvane_3_10::jit_rva_t;
using korvane_test::Decoded;
using korvane_test::DecoderSetup;
using korvane_test::JitMethod;
using korvane_test::kStartJitRva;
using korvane_test::Region;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;
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
    return korvane_test::decodeLast((trace.*version.write)(load, Width::Bits64), setup);
}

LoadRecord withoutLines(LoadRecord load) {
    load.managedToSource.clear();
    load.nativeToManaged.clear();
    load.nativeToSource.clear();
    return load;
}

typedef std::vector<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>> Triples;

template <typename Entry>
Triples triples(const std::vector<Entry>& entries) {
    Triples result;
    for (const Entry& entry : entries)
        result.emplace_back(entry.startOffset, entry.endOffset, entry.lineNumber);
    return result;
}

class LoadRecordTest : public ::testing::TestWithParam<Version> {};

TEST_P(LoadRecordTest, DecodesEveryFieldOfARecord) {
    const LoadRecord load = korvane_test::richLoadRecord();
    const Decoded decoded = decode(GetParam(), load);
    ASSERT_TRUE(decoded.accepted);
    const JitMethod& method = *decoded.method;
    EXPECT_EQ(kStartJitRva, method.getStartJitRva());
    EXPECT_EQ(load.loadTime, method.getLoadTime());
    EXPECT_EQ(load.methodToken, method.getMethodToken());
    EXPECT_EQ(GetParam().isV3 ? load.methodId : 0u, method.getRawMethodId());
    EXPECT_FALSE(method.getMethodId().isEmpty());
    ASSERT_EQ(2u, method.regionCount());
    for (std::size_t i = 0; i < 2; ++i) {
        const Region& region = *method.codeRegions()[i];
        EXPECT_EQ(kStartJitRva + 0x40 * i, region.getStartJitRva());
        EXPECT_EQ(load.ranges[i].startAddress, region.getStartVirtualAddress());
        EXPECT_EQ(load.ranges[i].length, region.getLength());
        EXPECT_EQ(load.ranges[i].code, korvane_test::bytesOf(region.getBytes())) << "codeSize and length may differ";
        EXPECT_EQ(load.loadTime, region.getLoadTime());
        EXPECT_EQ(korvane_test::kPid, region.getProcessId());
        EXPECT_EQ(korvane_test::kHostId, region.getHostID());
    }
    EXPECT_EQ(kStartJitRva + 0x60, decoded.nextJitRva);
    EXPECT_STREQ("/opt/app/lib/app.so", method.getModule()->getFilePath());
    EXPECT_EQ(meNotFound, method.getModule()->isBogus());
    EXPECT_EQ(arch_xa64, method.getModule()->getArchitecture());
    EXPECT_STREQ("ui::Widget::draw(int)", method.getQualifiedMethodName());
    const korvane_3_10::ISourceFile::Ptr source = method.getSourceFile();
    ASSERT_TRUE(source);
    EXPECT_STREQ("Widget.cs", source->getSourceFileName());
    EXPECT_STREQ("c0ffee", source->getChecksum());
    EXPECT_EQ(2u, source->getChecksumType());
    EXPECT_EQ(3u, source->getLanguageType());
    // All tables describe the first region, also when the method has more.
    ASSERT_EQ(1u, method.getLineNumberInfo().size());
    const auto& tables = *method.getLineNumberInfo().begin();
    EXPECT_EQ(kStartJitRva, tables.first.m_start);
    EXPECT_EQ(0x40u, tables.first.m_length);
    EXPECT_EQ(triples(load.managedToSource), triples(tables.second.m_managedToSource));
    EXPECT_EQ(triples(load.nativeToManaged), triples(tables.second.m_nativeToManaged));
    EXPECT_EQ(triples(load.nativeToSource), triples(tables.second.m_nativeToSource));
}

// Empty ranges take no region and no jit RVAs; a record of empty ranges only,
// or a line table without a range to describe, is refused untouched.
TEST_P(LoadRecordTest, RangeShapesDecideRegionsAndJitRvas) {
    const struct {
        const char* name;
        std::vector<std::uint32_t> lengths;
        bool withLines;
        bool accepted;
        std::uint32_t regions;
        jit_rva_t next;
    } shapes[] = {
        {"one empty of two", {0, 0x30}, true, true, 1, kStartJitRva + 0x30},
        {"all empty", {0, 0}, false, false, 0, kStartJitRva},
        {"no range", {}, false, true, 0, kStartJitRva},
        {"no range but lines", {}, true, false, 0, kStartJitRva},
    };
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape.name);
        LoadRecord load = withoutLines(korvane_test::richLoadRecord());
        load.ranges.clear();
        for (std::uint32_t length : shape.lengths)
            load.ranges.push_back({0x9000 + 0x100 * load.ranges.size(), length, korvane_test::codeBytes(8)});
        if (shape.withLines)
            load.nativeToSource = {{0, 8, 5}};
        korvane_test::LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = decode(GetParam(), load);
        EXPECT_EQ(shape.accepted, decoded.accepted);
        ASSERT_EQ(shape.regions, decoded.method->regionCount());
        EXPECT_TRUE(shape.regions == 0 || decoded.method->codeRegions()[0]->startAddress() == 0x9100);
        EXPECT_EQ(shape.next, decoded.nextJitRva);
        EXPECT_EQ(shape.accepted && shape.withLines, !decoded.method->getLineNumberInfo().empty());
        const bool told = !shape.accepted && !shape.withLines && GetParam().isV3;
        EXPECT_EQ(told ? 1u : 0u, log.count("The bytes of the code are not supplied, at file: "));
    }
}

TEST_P(LoadRecordTest, ModulesOnlyKeepsNoBytes) {
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    const Decoded decoded = decode(GetParam(), korvane_test::richLoadRecord(), setup);
    ASSERT_TRUE(decoded.accepted);
    ASSERT_EQ(2u, decoded.method->regionCount());
    EXPECT_FALSE(decoded.method->codeRegions()[0]->getBytes());
    EXPECT_EQ(kStartJitRva + 0x60, decoded.nextJitRva);
    EXPECT_STREQ("/opt/app/lib/app.so", decoded.method->getModule()->getFilePath());
    // The oldest forms stop behind the module; the others decode in full.
    const bool stops = GetParam().isOldest;
    EXPECT_EQ(stops, decoded.method->getMethodId().isEmpty());
    EXPECT_EQ(stops, std::string(decoded.method->getClassName()).empty());
    EXPECT_EQ(stops, decoded.method->getLineNumberInfo().empty());
    EXPECT_EQ(stops, !decoded.method->getSourceFile());
}

TEST_P(LoadRecordTest, EqualRawIdsHashAlikeInOneProcessOnly) {
    const bool hashesRawId = !GetParam().isOldest;
    const LoadRecord first = korvane_test::richLoadRecord();
    LoadRecord second = first;
    second.ranges[0].startAddress += 0x10000;
    if (hashesRawId)
        second.className = "Other";
    const korvane_3_10::BaseMethodId id = decode(GetParam(), first).method->getMethodId();
    EXPECT_EQ(id, decode(GetParam(), second).method->getMethodId());
    DecoderSetup otherProcess;
    otherProcess.pid = korvane_test::kPid + 1;
    DecoderSetup otherHost;
    otherHost.hostId = korvane_test::kHostId + 1;
    // Without a raw id the names and the module make the id, wherever the code runs.
    EXPECT_EQ(!hashesRawId, id == decode(GetParam(), first, otherProcess).method->getMethodId());
    EXPECT_EQ(!hashesRawId, id == decode(GetParam(), first, otherHost).method->getMethodId());
}

TEST_P(LoadRecordTest, TheFieldBehindACountedStringIsFoundWhateverItsLength) {
    const std::pair<std::string, std::string> names[] = {
        {"", ""},
        {std::string(511, 'm'), "C::" + std::string(511, 'm')},
        {std::string(512, 'm'), ""},
        {std::string("run\0away", 8), "C::run"},
    };
    for (const auto& name : names) {
        SCOPED_TRACE(name.first.size());
        LoadRecord load = korvane_test::richLoadRecord();
        load.methodName = name.first;
        load.className = "C";
        const Decoded decoded = decode(GetParam(), load);
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ(name.second, decoded.method->getMethodName());
        EXPECT_STREQ("C", decoded.method->getClassName());
        ASSERT_TRUE(decoded.method->getSourceFile());
        EXPECT_STREQ("Widget.cs", decoded.method->getSourceFile()->getSourceFileName());
        EXPECT_EQ(1u, decoded.method->getLineNumberInfo().size());
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, LoadRecordTest, ::testing::Values(kV0, kV1, kV2, kV3),
                         [](const ::testing::TestParamInfo<Version>& info) { return std::string(info.param.name); });

TEST(LoadRecordModuleTest, DefaultsAndTheBogusAnswerFollowTheVersion) {
    const struct {
        Version version;
        std::string module;
        std::uint16_t language;
        std::string className;
        std::uint32_t collector;
        std::string path;
        korvane_error_t bogus;
    } cases[] = {
        {kV0, "", 5, "C", 0, "[Dynamic code]", meNotFound},
        {kV1, "/x.so", 0, "C", 1, "/x.so", meNotFound},
        {kV2, "", 5, "C", 0, "[Compiled Java code]", meSuccess},
        {kV2, "", 3, "C", 0, "[Dynamic code]", meSuccess},
        {kV2, "/x.so", 5, "C", 1, "/x.so", meNotFound},
        {kV3, "", 5, "C", 0, "[Compiled Java code]", meSuccess},
        {kV3, "", 1, "Lcom/a/B;", 0, "[Dynamic code]", meSuccess},
        {kV3, "", 1, "B", 0, "[Dynamic code]", meSuccess},
        {kV3, "[Compiled Java code]", 0, "B", 0, "[Compiled Java code]", meSuccess},
        {kV3, "/x.so", 0, "C", 1, "/x.so", meSuccess},
        {kV3, "/x.so", 0, "C", 2, "/x.so", meNotFound},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::string(expected.version.name) + " module '" + expected.module + "' language " +
                     std::to_string(expected.language) + " collector " + std::to_string(expected.collector));
        LoadRecord load = korvane_test::richLoadRecord();
        load.moduleName = expected.module;
        load.languageType = expected.language;
        load.className = expected.className;
        load.architecture = 2;
        const Decoded decoded = decode(expected.version, load, DecoderSetup(), expected.collector);
        ASSERT_TRUE(decoded.accepted && decoded.method->getModule());
        EXPECT_EQ(expected.path, decoded.method->getModule()->getFilePath());
        EXPECT_EQ(expected.bogus, decoded.method->getModule()->isBogus());
        EXPECT_EQ(arch_wa64, decoded.method->getModule()->getArchitecture());
    }
}

TEST(LoadRecordNameTest, JavaNamesAreMadeReadableInV3Only) {
    const struct {
        Version version;
        std::uint16_t language;
        std::string className;
        std::string qualified;
    } cases[] = {
        {kV3, 5, "Ljava/lang/String;", "java::lang::String::charAt(int)"},
        {kV3, 1, "Ljava/lang/String;", "java::lang::String::charAt(int)"},
        {kV3, 1, "L", "L::charAt(I)C"},
        {kV3, 1, "java.lang.String", "java::lang::String::charAt(I)C"},
        {kV2, 5, "Ljava/lang/String;", "Ljava/lang/String;::charAt(I)C"},
        {kV0, 5, "A.B", "A::B::charAt(I)C"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::string(expected.version.name) + " " + expected.className);
        LoadRecord load = korvane_test::richLoadRecord();
        load.languageType = expected.language;
        load.className = expected.className;
        load.methodName = "charAt(I)C";
        const Decoded decoded = decode(expected.version, load);
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ(expected.qualified, decoded.method->getQualifiedMethodName());
        const std::string qualified = expected.qualified;
        EXPECT_EQ(qualified.substr(0, qualified.find('(')), decoded.method->getMethodName());
        EXPECT_EQ(qualified.substr(0, qualified.rfind("::")), decoded.method->getClassName());
    }
}

TEST(LoadRecordV3Test, TheInlineFlagDecidesTheJitRvas) {
    const struct {
        std::uint8_t isInlined;
        std::vector<std::uint32_t> lengths;
        std::vector<jit_rva_t> rvas;
        jit_rva_t methodRva;
        jit_rva_t next;
    } cases[] = {
        {0, {0x40, 0x20}, {kStartJitRva, kStartJitRva + 0x40}, kStartJitRva, kStartJitRva + 0x60},
        {1, {0x40, 0x20}, {0, 1}, 0, kStartJitRva},
        {1, {0, 0x20}, {1}, 0, kStartJitRva},
        {2, {0x40}, {0}, 0, kStartJitRva},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE("isInlined " + std::to_string(expected.isInlined));
        LoadRecord load = korvane_test::richLoadRecord();
        load.isInlined = expected.isInlined;
        load.ranges.clear();
        for (std::uint32_t length : expected.lengths)
            load.ranges.push_back({0x7000 + 0x100 * load.ranges.size(), length, korvane_test::codeBytes(length)});
        korvane_test::TraceFile file(TraceWriter().loadV3(load));
        JitMethod::Ptr method(new JitMethod());
        korvane_bool_t isInlined = 0xee;
        ASSERT_TRUE(file.decoder().decodeMethodLoadRecordV3(file.next(), method, &isInlined));
        EXPECT_EQ(expected.isInlined, isInlined);
        EXPECT_EQ(expected.methodRva, method->getStartJitRva());
        std::vector<jit_rva_t> rvas;
        for (const Region::Ptr& region : method->codeRegions())
            rvas.push_back(region->startJitRva());
        EXPECT_EQ(expected.rvas, rvas);
        EXPECT_EQ(expected.next, file.decoder().nextJitRva());
        EXPECT_EQ(expected.rvas.front(), method->getLineNumberInfo().begin()->first.m_start);
    }
}

TEST(LoadRecordV3Test, AFunctionUpdateDecodesLikeTheLoadOfTheSameBytes) {
    const Decoded load = decode(kV3, korvane_test::richLoadRecord());
    const Decoded update = korvane_test::decodeLast(TraceWriter().functionUpdate(korvane_test::richLoadRecord()));
    ASSERT_TRUE(update.accepted);
    EXPECT_EQ(load.method->getMethodId(), update.method->getMethodId());
    EXPECT_EQ(load.method->getRawMethodId(), update.method->getRawMethodId());
    EXPECT_STREQ(load.method->getQualifiedMethodName(), update.method->getQualifiedMethodName());
    EXPECT_STREQ(load.method->getModule()->getFilePath(), update.method->getModule()->getFilePath());
    ASSERT_EQ(2u, update.method->regionCount());
    EXPECT_EQ(load.method->codeRegions()[1]->startJitRva(), update.method->codeRegions()[1]->startJitRva());
    EXPECT_EQ(load.nextJitRva, update.nextJitRva);
}

TEST(LoadRecordOlderTest, EachDecoderTakesOnlyItsOwnTypes) {
    korvane_test::TraceFile file{TraceWriter()};
    for (std::uint32_t type : {0u, 2u, 4u, 5u, 6u, 7u, 8u, 9u}) {
        JitFileDecoder::Record record;
        record.type = type;
        record.data.assign(64, 0);
        JitMethod::Ptr method(new JitMethod());
        EXPECT_EQ(type == 0 || type == 2, file.decoder().decodeMethodLoadRecordV0(record, method)) << type;
        EXPECT_EQ(type == 4 || type == 5, file.decoder().decodeMethodLoadRecordV1(record, method)) << type;
        EXPECT_EQ(type == 6 || type == 7, file.decoder().decodeMethodLoadRecordV2(record, method)) << type;
    }
}

} // namespace
