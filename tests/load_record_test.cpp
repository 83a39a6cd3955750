// Method load records V0 to V3 as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include "jitreader/jit_trace_format.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

using korvane_3_10::BaseMethodId;
using korvane_3_10::JitFileDecoder;
using korvane_3_10::JitMethod;
using korvane_3_10::Range;
using korvane_3_10::Region;
using korvane_3_10::jit_rva_t;
using korvane_test::DecoderSetup;
using korvane_test::kStartJitRva;
using korvane_test::TraceFile;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::CodeRange;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::Width;

struct Version {
    const char* name;
    TraceWriter& (TraceWriter::*write)(const LoadRecord&, Width);
    bool keepsRawId;
    bool hashesRawId;
    bool stopsAfterModule;
};

const Version kV0{"V0", &TraceWriter::loadV0, false, false, true};
const Version kV1{"V1", &TraceWriter::loadV1, false, false, true};
const Version kV2{"V2", &TraceWriter::loadV2, false, true, false};
const Version kV3{"V3", &TraceWriter::loadV3, true, true, false};

struct Decoded {
    bool accepted = false;
    JitMethod::Ptr method;
    jit_rva_t nextJitRva = 0;
};

// Writes the record (behind a CollectorType record when collector isn't 0) and decodes it.
Decoded decode(const Version& version, const LoadRecord& load, DecoderSetup setup = DecoderSetup(),
               std::uint32_t collector = 0, Width width = Width::Bits64) {
    TraceWriter trace;
    if (collector != 0)
        trace.collectorType(collector);
    (trace.*version.write)(load, width);
    TraceFile file(trace, setup);
    if (collector != 0)
        file.next();
    Decoded decoded;
    decoded.method.reset(new JitMethod());
    decoded.accepted = korvane_test::decodeCodeRecord(file.decoder(), file.next(), decoded.method);
    decoded.nextJitRva = file.decoder().nextJitRva();
    return decoded;
}

Bytes bytesOf(const Region& region) {
    if (!region.getBytes() || !region.getBytes()->data())
        return Bytes();
    const auto* data = static_cast<const std::uint8_t*>(region.getBytes()->data());
    return Bytes(data, data + region.getBytes()->size());
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
    const Version& version = GetParam();
    const LoadRecord load = korvane_test::richLoadRecord();
    const Decoded decoded = decode(version, load);
    ASSERT_TRUE(decoded.accepted);
    const JitMethod& method = *decoded.method;

    EXPECT_EQ(kStartJitRva, method.getStartJitRva());
    EXPECT_EQ(load.loadTime, method.getLoadTime());
    EXPECT_EQ(load.methodToken, method.getMethodToken());
    EXPECT_EQ(version.keepsRawId ? load.methodId : 0u, method.getRawMethodId());
    EXPECT_FALSE(method.getMethodId().isEmpty());

    ASSERT_EQ(2u, method.regionCount());
    const jit_rva_t expectedRvas[] = {kStartJitRva, kStartJitRva + 0x40};
    for (std::size_t i = 0; i < 2; ++i) {
        const Region& region = *method.codeRegions()[i];
        EXPECT_EQ(expectedRvas[i], region.getStartJitRva());
        EXPECT_EQ(load.ranges[i].startAddress, region.getStartVirtualAddress());
        EXPECT_EQ(load.ranges[i].length, region.getLength());
        EXPECT_EQ(load.ranges[i].code, bytesOf(region)) << "codeSize and length may differ";
        EXPECT_EQ(load.loadTime, region.getLoadTime());
        EXPECT_EQ(0u, region.getUnloadTime());
        EXPECT_EQ(korvane_test::kPid, region.getProcessId());
        EXPECT_EQ(korvane_test::kHostId, region.getHostID());
    }
    EXPECT_EQ(kStartJitRva + 0x60, decoded.nextJitRva);

    ASSERT_TRUE(method.getModule());
    EXPECT_STREQ("/opt/app/lib/app.so", method.getModule()->getFilePath());
    EXPECT_EQ(meNotFound, method.getModule()->isBogus());
    EXPECT_EQ(arch_xa64, method.getModule()->getArchitecture());
    EXPECT_STREQ("ui::Widget", method.getClassName());
    EXPECT_STREQ("ui::Widget::draw", method.getMethodName());
    EXPECT_STREQ("ui::Widget::draw(int)", method.getQualifiedMethodName());
    const korvane_3_10::ISourceFile::Ptr source = method.getSourceFile();
    ASSERT_TRUE(source);
    EXPECT_STREQ("Widget.cs", source->getSourceFileName());
    EXPECT_STREQ("c0ffee", source->getChecksum());
    EXPECT_EQ(2u, source->getChecksumType());
    EXPECT_EQ(3u, source->getLanguageType());

    // All tables describe the first region, also when the method has more.
    const JitMethod::LineNumberInfo& tables = method.getLineNumberInfo();
    ASSERT_EQ(1u, tables.size());
    EXPECT_EQ(kStartJitRva, tables.begin()->first.m_start);
    EXPECT_EQ(0x40u, tables.begin()->first.m_length);
    EXPECT_EQ(triples(load.managedToSource), triples(tables.begin()->second.m_managedToSource));
    EXPECT_EQ(triples(load.nativeToManaged), triples(tables.begin()->second.m_nativeToManaged));
    EXPECT_EQ(triples(load.nativeToSource), triples(tables.begin()->second.m_nativeToSource));
}

struct RangeShape {
    const char* name;
    std::vector<std::uint32_t> lengths;
    bool withLineTable;
    bool accepted;
    std::uint32_t regions;
    jit_rva_t next;
    // V3 alone says why it refuses a record of empty ranges.
    bool toldByV3;
};

// Empty ranges take no region and no jit RVAs; a record of empty ranges only,
// or a line table without a range to describe, is refused untouched.
TEST_P(LoadRecordTest, RangeShapesDecideRegionsAndJitRvas) {
    const RangeShape shapes[] = {
        {"one empty of two", {0, 0x30}, true, true, 1, kStartJitRva + 0x30, false},
        {"all empty", {0, 0}, false, false, 0, kStartJitRva, true},
        {"no range", {}, false, true, 0, kStartJitRva, false},
        {"no range but lines", {}, true, false, 0, kStartJitRva, false},
    };
    for (const RangeShape& shape : shapes) {
        LoadRecord load = korvane_test::richLoadRecord();
        load.ranges.clear();
        for (std::uint32_t length : shape.lengths)
            load.ranges.push_back({0x9000 + 0x100 * load.ranges.size(), length, korvane_test::codeBytes(8)});
        load.managedToSource.clear();
        load.nativeToManaged.clear();
        load.nativeToSource.clear();
        if (shape.withLineTable)
            load.nativeToSource = {{0, 8, 5}};
        korvane_test::LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = decode(GetParam(), load);
        EXPECT_EQ(shape.accepted, decoded.accepted) << shape.name;
        EXPECT_EQ(shape.regions, decoded.method->regionCount()) << shape.name;
        EXPECT_EQ(shape.next, decoded.nextJitRva) << shape.name;
        EXPECT_EQ(shape.accepted && shape.withLineTable, !decoded.method->getLineNumberInfo().empty()) << shape.name;
        if (shape.regions != 0) {
            EXPECT_EQ(0x9100u, decoded.method->codeRegions()[0]->startAddress()) << shape.name;
        }
        const bool told = shape.toldByV3 && GetParam().keepsRawId;
        EXPECT_EQ(told ? 1u : 0u, log.count("The bytes of the code are not supplied, at file: ")) << shape.name;
    }
}

TEST_P(LoadRecordTest, ModulesOnlyKeepsNoBytes) {
    const Version& version = GetParam();
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    const Decoded decoded = decode(version, korvane_test::richLoadRecord(), setup);
    ASSERT_TRUE(decoded.accepted);
    ASSERT_EQ(2u, decoded.method->regionCount());
    EXPECT_FALSE(decoded.method->codeRegions()[0]->getBytes());
    EXPECT_EQ(kStartJitRva + 0x60, decoded.nextJitRva);
    ASSERT_TRUE(decoded.method->getModule());
    EXPECT_STREQ("/opt/app/lib/app.so", decoded.method->getModule()->getFilePath());
    // The oldest forms stop behind the module; the others decode in full.
    EXPECT_EQ(version.stopsAfterModule, decoded.method->getMethodId().isEmpty());
    EXPECT_EQ(version.stopsAfterModule, std::string(decoded.method->getClassName()).empty());
    EXPECT_EQ(version.stopsAfterModule, decoded.method->getLineNumberInfo().empty());
    EXPECT_EQ(version.stopsAfterModule, !decoded.method->getSourceFile());
}

TEST_P(LoadRecordTest, EqualRawIdsHashAlikeInOneProcessOnly) {
    const Version& version = GetParam();
    LoadRecord first = korvane_test::richLoadRecord();
    LoadRecord second = first;
    second.ranges[0].startAddress += 0x10000;
    second.ranges[1].startAddress += 0x10000;
    if (version.hashesRawId) {
        second.methodName = "other()";
        second.className = "Other";
    }
    const BaseMethodId id = decode(version, first).method->getMethodId();
    EXPECT_EQ(id, decode(version, second).method->getMethodId());

    DecoderSetup otherProcess;
    otherProcess.pid = korvane_test::kPid + 1;
    DecoderSetup otherHost;
    otherHost.hostId = korvane_test::kHostId + 1;
    // Without a raw id the names and the module make the id, wherever the code runs.
    EXPECT_EQ(!version.hashesRawId, id == decode(version, first, otherProcess).method->getMethodId());
    EXPECT_EQ(!version.hashesRawId, id == decode(version, first, otherHost).method->getMethodId());
}

struct CountedStringCase {
    const char* name;
    std::string methodName;
    std::string expectedMethodName;
};

std::vector<CountedStringCase> countedStringCases() {
    return {
        {"empty", "", ""},
        {"longest", std::string(511, 'm'), "C::" + std::string(511, 'm')},
        {"too long", std::string(512, 'm'), ""},
        {"far too long", std::string(4000, 'm'), ""},
        {"embedded NUL", std::string("run\0away", 8), "C::run"},
        {"trailing NUL", std::string("run\0", 4), "C::run"},
    };
}

class CountedStringTest : public ::testing::TestWithParam<std::tuple<Version, CountedStringCase>> {};

TEST_P(CountedStringTest, TheFieldBehindAStringIsFoundWhateverItsLength) {
    const Version& version = std::get<0>(GetParam());
    const CountedStringCase& text = std::get<1>(GetParam());
    LoadRecord load = korvane_test::richLoadRecord();
    load.methodName = text.methodName;
    load.className = "C";
    const Decoded decoded = decode(version, load);
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ(text.expectedMethodName, decoded.method->getMethodName());
    EXPECT_STREQ("C", decoded.method->getClassName());
    ASSERT_TRUE(decoded.method->getSourceFile());
    EXPECT_STREQ("Widget.cs", decoded.method->getSourceFile()->getSourceFileName());
    EXPECT_EQ(1u, decoded.method->getLineNumberInfo().size());
}

std::string versionName(const Version& version) { return version.name; }

void PrintTo(const Version& version, std::ostream* out) { *out << version.name; }

void PrintTo(const CountedStringCase& text, std::ostream* out) { *out << text.name; }

INSTANTIATE_TEST_SUITE_P(Versions, LoadRecordTest, ::testing::Values(kV0, kV1, kV2, kV3),
                         [](const ::testing::TestParamInfo<Version>& info) { return versionName(info.param); });

INSTANTIATE_TEST_SUITE_P(Versions, CountedStringTest,
                         ::testing::Combine(::testing::Values(kV0, kV1, kV2, kV3),
                                            ::testing::ValuesIn(countedStringCases())),
                         [](const ::testing::TestParamInfo<std::tuple<Version, CountedStringCase>>& info) {
                             std::string name = versionName(std::get<0>(info.param)) + "_" +
                                                std::get<1>(info.param).name;
                             for (char& c : name)
                                 if (c == ' ')
                                     c = '_';
                             return name;
                         });

struct ModuleCase {
    Version version;
    std::string moduleName;
    std::uint16_t languageType;
    std::string className;
    std::uint32_t collector;
    std::string expectedPath;
    korvane_error_t expectedBogus;
};

TEST(LoadRecordModuleTest, DefaultsAndTheBogusAnswerFollowTheVersion) {
    const ModuleCase cases[] = {
        {kV0, "", 5, "C", 0, "[Dynamic code]", meNotFound},
        {kV1, "", 5, "C", 1, "[Dynamic code]", meNotFound},
        {kV1, "/x.so", 0, "C", 0, "/x.so", meNotFound},
        {kV2, "", 5, "C", 0, "[Compiled Java code]", meSuccess},
        {kV2, "", 3, "C", 0, "[Dynamic code]", meSuccess},
        {kV2, "[Dynamic code]", 3, "C", 0, "[Dynamic code]", meSuccess},
        {kV2, "/x.so", 5, "C", 0, "/x.so", meNotFound},
        {kV2, "/x.so", 0, "C", 1, "/x.so", meNotFound},
        {kV3, "", 5, "C", 0, "[Compiled Java code]", meSuccess},
        {kV3, "", 1, "Lcom/a/B;", 0, "[Dynamic code]", meSuccess},
        {kV3, "", 1, "B", 0, "[Dynamic code]", meSuccess},
        {kV3, "[Compiled Java code]", 0, "B", 0, "[Compiled Java code]", meSuccess},
        {kV3, "/x.so", 0, "C", 0, "/x.so", meNotFound},
        {kV3, "/x.so", 0, "C", 1, "/x.so", meSuccess},
        {kV3, "/x.so", 0, "C", 2, "/x.so", meNotFound},
    };
    for (const ModuleCase& expected : cases) {
        LoadRecord load = korvane_test::richLoadRecord();
        load.moduleName = expected.moduleName;
        load.languageType = expected.languageType;
        load.className = expected.className;
        load.architecture = 2;
        const Decoded decoded = decode(expected.version, load, DecoderSetup(), expected.collector);
        const std::string what = std::string(expected.version.name) + " module '" + expected.moduleName +
                                 "' language " + std::to_string(expected.languageType) + " collector " +
                                 std::to_string(expected.collector);
        ASSERT_TRUE(decoded.accepted) << what;
        ASSERT_TRUE(decoded.method->getModule()) << what;
        EXPECT_EQ(expected.expectedPath, decoded.method->getModule()->getFilePath()) << what;
        EXPECT_EQ(expected.expectedBogus, decoded.method->getModule()->isBogus()) << what;
        EXPECT_EQ(arch_wa64, decoded.method->getModule()->getArchitecture()) << what;
    }
}

struct NameCase {
    Version version;
    std::uint16_t languageType;
    std::string className;
    std::string methodName;
    std::string expectedClass;
    std::string expectedMethod;
    std::string expectedQualified;
};

TEST(LoadRecordNameTest, JavaNamesAreMadeReadableInV3Only) {
    const NameCase cases[] = {
        {kV3, 5, "Ljava/lang/String;", "charAt(I)C", "java::lang::String", "java::lang::String::charAt",
         "java::lang::String::charAt(int)"},
        {kV3, 1, "Ljava/lang/String;", "charAt(I)C", "java::lang::String", "java::lang::String::charAt",
         "java::lang::String::charAt(int)"},
        {kV3, 1, "L", "charAt(I)C", "L", "L::charAt", "L::charAt(I)C"},
        {kV3, 1, "java.lang.String", "charAt(I)C", "java::lang::String", "java::lang::String::charAt",
         "java::lang::String::charAt(I)C"},
        {kV3, 1, "", "free", "", "free", "free"},
        {kV2, 5, "Ljava/lang/String;", "charAt(I)C", "Ljava/lang/String;", "Ljava/lang/String;::charAt",
         "Ljava/lang/String;::charAt(I)C"},
        {kV0, 1, "A.B", "m(x.Y, int)", "A::B", "A::B::m", "A::B::m(x::Y, int)"},
    };
    for (const NameCase& expected : cases) {
        LoadRecord load = korvane_test::richLoadRecord();
        load.languageType = expected.languageType;
        load.className = expected.className;
        load.methodName = expected.methodName;
        const Decoded decoded = decode(expected.version, load);
        const std::string what = std::string(expected.version.name) + " " + expected.className;
        ASSERT_TRUE(decoded.accepted) << what;
        EXPECT_EQ(expected.expectedClass, decoded.method->getClassName()) << what;
        EXPECT_EQ(expected.expectedMethod, decoded.method->getMethodName()) << what;
        EXPECT_EQ(expected.expectedQualified, decoded.method->getQualifiedMethodName()) << what;
    }
}

struct InlineFlagCase {
    std::uint8_t isInlined;
    std::vector<std::uint32_t> lengths;
    std::vector<jit_rva_t> expectedRvas;
    jit_rva_t expectedMethodRva;
    jit_rva_t expectedNext;
};

TEST(LoadRecordV3Test, TheInlineFlagDecidesTheJitRvas) {
    const InlineFlagCase cases[] = {
        {0, {0x40, 0x20}, {kStartJitRva, kStartJitRva + 0x40}, kStartJitRva, kStartJitRva + 0x60},
        {1, {0x40, 0x20}, {0, 1}, 0, kStartJitRva},
        {1, {0, 0x20}, {1}, 0, kStartJitRva},
        {2, {0x40}, {0}, 0, kStartJitRva},
    };
    for (const InlineFlagCase& expected : cases) {
        LoadRecord load = korvane_test::richLoadRecord();
        load.isInlined = expected.isInlined;
        load.ranges.clear();
        for (std::uint32_t length : expected.lengths)
            load.ranges.push_back({0x7000 + 0x100 * load.ranges.size(), length, korvane_test::codeBytes(length)});
        TraceFile file(TraceWriter().loadV3(load));
        JitMethod::Ptr method(new JitMethod());
        korvane_bool_t isInlined = 0xee;
        ASSERT_TRUE(file.decoder().decodeMethodLoadRecordV3(file.next(), method, &isInlined));
        const std::string what = "isInlined " + std::to_string(expected.isInlined);
        EXPECT_EQ(expected.isInlined, isInlined) << what;
        EXPECT_EQ(expected.expectedMethodRva, method->getStartJitRva()) << what;
        std::vector<jit_rva_t> rvas;
        for (const Region::Ptr& region : method->codeRegions())
            rvas.push_back(region->startJitRva());
        EXPECT_EQ(expected.expectedRvas, rvas) << what;
        EXPECT_EQ(expected.expectedNext, file.decoder().nextJitRva()) << what;
        EXPECT_EQ(expected.expectedRvas.front(), method->getLineNumberInfo().begin()->first.m_start) << what;
    }
}

TEST(LoadRecordV3Test, AFunctionUpdateDecodesLikeTheLoadOfTheSameBytes) {
    const Decoded load = decode(kV3, korvane_test::richLoadRecord());
    TraceFile file(TraceWriter().functionUpdate(korvane_test::richLoadRecord()));
    JitMethod::Ptr update(new JitMethod());
    ASSERT_TRUE(korvane_test::decodeCodeRecord(file.decoder(), file.next(), update));
    EXPECT_EQ(load.method->getMethodId(), update->getMethodId());
    EXPECT_EQ(load.method->getRawMethodId(), update->getRawMethodId());
    EXPECT_STREQ(load.method->getQualifiedMethodName(), update->getQualifiedMethodName());
    EXPECT_STREQ(load.method->getModule()->getFilePath(), update->getModule()->getFilePath());
    ASSERT_EQ(load.method->regionCount(), update->regionCount());
    EXPECT_EQ(load.method->codeRegions()[1]->startJitRva(), update->codeRegions()[1]->startJitRva());
    EXPECT_EQ(load.nextJitRva, file.decoder().nextJitRva());
}

TEST(LoadRecordV3Test, TheDecodedMethodIsDumpedAtInfo) {
    korvane_test::LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const Decoded decoded = decode(kV3, korvane_test::richLoadRecord());
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ(1u, log.count("Raw JIT file data:\nMethod id:       0x4d"));
    EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
}

TEST(LoadRecordOlderTest, EachDecoderTakesOnlyItsOwnTypes) {
    const std::uint32_t types[] = {0, 2, 4, 5, 6, 7, 8, 9};
    for (std::uint32_t type : types) {
        JitFileDecoder::Record record;
        record.type = type;
        record.data.assign(64, 0);
        JitMethod::Ptr method(new JitMethod());
        TraceFile file{TraceWriter()};
        EXPECT_EQ(type == 0 || type == 2, file.decoder().decodeMethodLoadRecordV0(record, method)) << type;
        EXPECT_EQ(type == 4 || type == 5, file.decoder().decodeMethodLoadRecordV1(record, method)) << type;
        EXPECT_EQ(type == 6 || type == 7, file.decoder().decodeMethodLoadRecordV2(record, method)) << type;
    }
}

} // namespace
