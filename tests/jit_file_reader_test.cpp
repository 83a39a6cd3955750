// Reading whole .jit files into a data manager: what ends a file, what is skipped, and where records go.
#include "trace_decoding_support.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_reader.h"
#include "jitreader/jit_trace_format.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using korvane_3_10::JitDataManager;
using korvane_3_10::JitFileReader;
using korvane_3_10::JitMethod;
using korvane_3_10::Region;
using korvane_3_10::target_arch_t;
using korvane_test::DecoderSetup;
using korvane_test::LogCapture;
using korvane_test::TraceFile;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::UpdateV2Record;
using korvane_tracewriter::Width;
namespace jt = korvane_3_10::jittrace;

const char kFinalize[] = "ENTER: void korvane_3_10::JitDataManager::finalize()";

LoadRecord methodAt(std::uint32_t id, std::uint64_t address, std::uint32_t length, std::uint64_t loadTime) {
    LoadRecord record;
    record.methodId = id;
    record.methodToken = id;
    record.loadTime = loadTime;
    record.ranges = {{address, length, korvane_test::codeBytes(length, 0)}};
    record.moduleName = "/opt/app/a.so";
    record.methodName = "m" + std::to_string(id);
    record.className = "C";
    return record;
}

struct Reading {
    korvane_error_t result = meSuccess;
    bool finalized = false;
    korvane_3_10::jit_rva_t nextJitRva = 0;
};

// Reads the trace into the manager as the catalogue does: a fresh decoder
// whose search goes to the manager.
Reading read(const TraceWriter& trace, JitDataManager& manager, target_arch_t arch = korvane_3_10::taAny,
             DecoderSetup setup = DecoderSetup(), bool searchManager = true) {
    TraceFile file(trace, setup);
    if (searchManager)
        file.decoder().setSearchCallback(&manager);
    LogCapture log(log4cplus::TRACE_LOG_LEVEL);
    Reading reading;
    reading.result = JitFileReader::readJitFile(file.decoder(), arch, manager);
    reading.finalized = log.count(kFinalize) == 1;
    reading.nextJitRva = file.decoder().nextJitRva();
    return reading;
}

std::vector<std::string> methodNames(const JitDataManager& manager) {
    std::vector<std::string> names;
    for (const auto& entry : manager.jitMethods())
        names.push_back(entry.second->getMethodName());
    std::sort(names.begin(), names.end());
    return names;
}

const JitMethod& methodNamed(const JitDataManager& manager, const std::string& name) {
    for (const auto& entry : manager.jitMethods())
        if (name == entry.second->getMethodName())
            return *entry.second;
    throw std::runtime_error("no method " + name);
}

TEST(JitFileReaderTest, AnEmptyFileIsReadAndFinalised) {
    JitDataManager manager;
    manager.setCollectorType(korvane_3_10::ctJitProfiler);
    const Reading reading = read(TraceWriter(), manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(0u, manager.getCollectorType()) << "a file without the record has no collector type";
    EXPECT_TRUE(manager.jitMethods().empty());
}

TEST(JitFileReaderTest, TheCollectorTypeOfTheFileReachesTheManager) {
    JitDataManager manager;
    const Reading reading = read(TraceWriter().magic().collectorType(1), manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(1u, manager.getCollectorType());
}

TEST(JitFileReaderTest, LoadRecordsOfEveryVersionReachTheManager) {
    JitDataManager manager;
    const Reading reading = read(TraceWriter()
                                     .magic()
                                     .loadV0(methodAt(1, 0x1000, 0x10, 0x100))
                                     .loadV1(methodAt(2, 0x2000, 0x10, 0x100))
                                     .loadV2(methodAt(3, 0x3000, 0x10, 0x100))
                                     .loadV3(methodAt(4, 0x4000, 0x10, 0x100), Width::Bits32),
                                 manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ((std::vector<std::string>{"C::m1", "C::m2", "C::m3", "C::m4"}), methodNames(manager));
    EXPECT_EQ(4u, manager.jitRvaDomain().size());
    EXPECT_EQ(korvane_test::kStartJitRva + 0x40, reading.nextJitRva);
}

TEST(JitFileReaderTest, ASecondMagicEndsTheFile) {
    const struct {
        const char* name;
        TraceWriter trace;
    } cases[] = {
        {"two traces", TraceWriter().magic().loadV3(methodAt(1, 0x1000, 0x10, 0x100)).magic().loadV3(
                           methodAt(2, 0x2000, 0x10, 0x100))},
        {"no leading magic", TraceWriter().loadV3(methodAt(1, 0x1000, 0x10, 0x100)).magic().loadV3(
                                 methodAt(2, 0x2000, 0x10, 0x100))},
        {"garbage behind", TraceWriter().loadV3(methodAt(1, 0x1000, 0x10, 0x100)).magic().sized(3, {1})},
    };
    for (const auto& file : cases) {
        JitDataManager manager;
        const Reading reading = read(file.trace, manager);
        EXPECT_EQ(meSuccess, reading.result) << file.name;
        EXPECT_TRUE(reading.finalized) << file.name;
        EXPECT_EQ(std::vector<std::string>{"C::m1"}, methodNames(manager)) << file.name;
    }
}

TEST(JitFileReaderTest, ALoadRecordOfTheOtherWidthEndsTheFile) {
    const std::uint32_t narrow[] = {jt::FunctionLoad32, jt::FunctionLoad32_v1, jt::FunctionLoad32_v2,
                                    jt::FunctionLoad32_v3};
    const std::uint32_t wide[] = {jt::FunctionLoad64, jt::FunctionLoad64_v1, jt::FunctionLoad64_v2,
                                  jt::FunctionLoad64_v3};
    const korvane_tracewriter::Bytes payloads[] = {
        korvane_tracewriter::payloadV0(methodAt(2, 0x2000, 0x10, 0x100)),
        korvane_tracewriter::payloadV1(methodAt(2, 0x2000, 0x10, 0x100)),
        korvane_tracewriter::payloadV2(methodAt(2, 0x2000, 0x10, 0x100)),
        korvane_tracewriter::payloadV3(methodAt(2, 0x2000, 0x10, 0x100)),
    };
    for (target_arch_t arch : {korvane_3_10::taAny, korvane_3_10::taBits32, korvane_3_10::taBits64}) {
        for (int version = 0; version < 4; ++version) {
            for (bool is64 : {false, true}) {
                const std::uint32_t type = is64 ? wide[version] : narrow[version];
                JitDataManager manager;
                // The record under test, then one of the wanted width that must be read only if it was.
                const Reading reading = read(TraceWriter().magic().sized(type, payloads[version]).loadV3(
                                                 methodAt(3, 0x3000, 0x10, 0x100),
                                                 arch == korvane_3_10::taBits32 ? Width::Bits32 : Width::Bits64),
                                             manager, arch);
                const bool wanted = arch == korvane_3_10::taAny || (arch == korvane_3_10::taBits64) == is64;
                const std::string what = "arch " + std::to_string(arch) + " type " + std::to_string(type);
                EXPECT_EQ(meSuccess, reading.result) << what;
                EXPECT_TRUE(reading.finalized) << what;
                EXPECT_EQ(wanted ? 2u : 0u, manager.jitMethods().size()) << what;
            }
        }
    }
}

TEST(JitFileReaderTest, InlineAndUpdateRecordsAreNotTestedForWidth) {
    JitDataManager manager;
    InlineRecord inlined = korvane_test::richInlineRecord();
    inlined.startAddress = 0x1004;
    inlined.length = 4;
    inlined.code = korvane_test::codeBytes(4);
    inlined.methodId = 0;
    inlined.parentId = 0;
    UpdateV2Record update = korvane_test::richUpdateRecord();
    update.startAddress = 0x1008;
    update.loadTime = 0x200;
    const Reading reading = read(TraceWriter()
                                     .loadV3(methodAt(1, 0x1000, 0x10, 0x100))
                                     .inlineLoad(inlined, Width::Bits32)
                                     .updateV2(update)
                                     .loadV3(methodAt(2, 0x2000, 0x10, 0x100), Width::Bits32)
                                     .loadV3(methodAt(3, 0x3000, 0x10, 0x100)),
                                 manager, korvane_3_10::taBits64);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_EQ(std::vector<std::string>{"C::m1"}, methodNames(manager));
    const JitMethod& parent = methodNamed(manager, "C::m1");
    EXPECT_EQ(1u, parent.codeRegions()[0]->inlinedRegions().size());
    EXPECT_EQ(2u, parent.regionCount()) << "the update joined the method it changed";
}

TEST(JitFileReaderTest, AFramingFailureStopsWithoutFinalising) {
    JitDataManager manager;
    const Reading reading = read(TraceWriter().magic().loadV3(methodAt(1, 0x1000, 0x10, 0x100)).sized(15, {1}), manager);
    EXPECT_EQ(meMalformedRecord, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_EQ(std::vector<std::string>{"C::m1"}, methodNames(manager)) << "what came before stays";
}

TEST(JitFileReaderTest, RecordsTheDecoderRefusesAreSkipped) {
    LoadRecord allEmpty = methodAt(2, 0x2000, 0x10, 0x100);
    allEmpty.ranges[0].length = 0;
    InlineRecord noLoadTime = korvane_test::richInlineRecord();
    noLoadTime.loadTime = 0;
    const korvane_tracewriter::Bytes cutV2 = korvane_tracewriter::payloadV2(methodAt(3, 0x3000, 0x10, 0x100));
    JitDataManager manager;
    LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    const Reading reading = read(TraceWriter()
                                     .loadV3(allEmpty)
                                     .sized(jt::FunctionLoad64_v2,
                                            korvane_tracewriter::Bytes(cutV2.begin(), cutV2.end() - 1))
                                     .inlineLoad(noLoadTime)
                                     .updateV2(UpdateV2Record())
                                     .loadV3(methodAt(1, 0x1000, 0x10, 0x100)),
                                 manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(std::vector<std::string>{"C::m1"}, methodNames(manager));
    EXPECT_EQ(1u, log.count("Failed to decode a UPDATE_V2 record, at file: src/jitreader/jit_file_reader.cpp:"));
}

TEST(JitFileReaderTest, AManagerFailureForALoadRecordStopsWithItsCode) {
    JitDataManager manager;
    ASSERT_EQ(meSuccess, read(TraceWriter().loadV3(methodAt(1, 0x1000, 0x10, 0x100)), manager).result);
    // A second file over the same jit RVA range: the manager refuses the overlap.
    const Reading reading = read(TraceWriter().loadV3(methodAt(2, 0x2000, 0x10, 0x100)).loadV3(
                                     methodAt(3, 0x3000, 0x10, 0x100)),
                                 manager);
    EXPECT_EQ(meMalformedRecord, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_EQ((std::vector<std::string>{"C::m1", "C::m2"}), methodNames(manager));
}

TEST(JitFileReaderTest, TheInlineFlagOfAV3RecordCarriesOverToOlderRecords) {
    LoadRecord inlinedV3 = methodAt(2, 0x1010, 0x10, 0x200);
    inlinedV3.methodId = 0;
    inlinedV3.isInlined = 1;
    LoadRecord olderBehind = methodAt(3, 0x1020, 0x10, 0x300);
    LoadRecord cleared = methodAt(4, 0x4000, 0x10, 0x400);
    JitDataManager manager;
    const Reading reading = read(
        TraceWriter().loadV3(methodAt(1, 0x1000, 0x100, 0x100)).loadV3(inlinedV3).loadV2(olderBehind).loadV3(cleared),
        manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_EQ((std::vector<std::string>{"C::m1", "C::m4"}), methodNames(manager));
    const Region& parent = *methodNamed(manager, "C::m1").codeRegions()[0];
    ASSERT_EQ(2u, parent.inlinedRegions().size());
    EXPECT_STREQ("C::m2", parent.inlinedMethods()[0]->getMethodName());
    EXPECT_STREQ("C::m3", parent.inlinedMethods()[1]->getMethodName());
}

TEST(JitFileReaderTest, AnInlineFlagOfTwoTakesTheLoadRoad) {
    LoadRecord odd = methodAt(2, 0x2000, 0x10, 0x200);
    odd.isInlined = 2;
    JitDataManager manager;
    const Reading reading = read(TraceWriter().loadV3(odd), manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_EQ(0u, methodNamed(manager, "C::m2").getStartJitRva());
    EXPECT_EQ(korvane_test::kStartJitRva, reading.nextJitRva);
}

TEST(JitFileReaderTest, InlineFailuresInTheManagerStopTheFile) {
    // Under the JIT profiler an inlined V3 record has no parent id: the manager's code comes back.
    LoadRecord inlinedV3 = methodAt(2, 0x1010, 0x10, 0x200);
    inlinedV3.isInlined = 1;
    JitDataManager first;
    const Reading viaLoad = read(TraceWriter().collectorType(1).loadV3(inlinedV3).loadV3(methodAt(3, 0x3000, 0x10, 0x300)),
                                 first);
    EXPECT_EQ(meNotFound, viaLoad.result);
    EXPECT_FALSE(viaLoad.finalized);
    EXPECT_TRUE(first.jitMethods().empty());

    // An inline record whose code lies in no loaded method: always meMalformedRecord.
    InlineRecord orphan = korvane_test::richInlineRecord();
    orphan.methodId = 0;
    orphan.parentId = 0;
    JitDataManager second;
    const Reading viaInline = read(TraceWriter().inlineLoad(orphan).loadV3(methodAt(3, 0x3000, 0x10, 0x300)), second);
    EXPECT_EQ(meMalformedRecord, viaInline.result);
    EXPECT_FALSE(viaInline.finalized);
    EXPECT_TRUE(second.jitMethods().empty());
}

TEST(JitFileReaderTest, FunctionUpdatesAreAppliedInFullModeOnly) {
    LoadRecord update = methodAt(1, 0x1004, 4, 0x200);
    update.ranges[0].code = {0xaa, 0xbb, 0xcc, 0xdd};
    const TraceWriter trace = TraceWriter().collectorType(1).loadV3(methodAt(1, 0x1000, 0x10, 0x100)).functionUpdate(
        update);
    for (korvane_3_10::decoding_mode_t mode : {korvane_3_10::dmFull, korvane_3_10::dmModulesOnly}) {
        DecoderSetup setup;
        setup.mode = mode;
        JitDataManager manager;
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Reading reading = read(trace, manager, korvane_3_10::taAny, setup);
        EXPECT_EQ(meSuccess, reading.result);
        EXPECT_EQ(korvane_test::kStartJitRva + 0x14, reading.nextJitRva) << "the update is decoded in both modes";
        EXPECT_EQ(mode == korvane_3_10::dmFull ? 1u : 0u, log.count("Updated code region")) << mode;
        // Without bytes the manager would refuse the update aloud; it must not be asked at all.
        EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty()) << log.messages(log4cplus::ERROR_LOG_LEVEL).front();
        const Region& region = *methodNamed(manager, "C::m1").codeRegions()[0];
        if (mode == korvane_3_10::dmFull) {
            EXPECT_EQ(0xaa, static_cast<const std::uint8_t*>(region.getBytes()->data())[4]);
        }
    }
}

TEST(JitFileReaderTest, AnUpdateTheManagerRefusesIsLoggedAndReadingGoesOn) {
    // Without a search, both updates stand alone at jit RVA 0 and the second overlaps the first.
    JitDataManager manager;
    LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    UpdateV2Record elsewhere = korvane_test::richUpdateRecord();
    elsewhere.startAddress = 0x9000;
    const Reading reading = read(TraceWriter()
                                     .updateV2(korvane_test::richUpdateRecord())
                                     .updateV2(elsewhere)
                                     .loadV3(methodAt(1, 0x1000, 0x10, 0x100)),
                                 manager, korvane_3_10::taAny, DecoderSetup(), false);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(1u, log.count("Failed to process a UPDATE_V2 record, at file: src/jitreader/jit_file_reader.cpp:"));
    EXPECT_EQ(2u, manager.jitMethods().size());
    EXPECT_STREQ("C::m1", methodNamed(manager, "C::m1").getMethodName());
}

struct ModuleNameCase {
    const char* name;
    std::uint32_t collector;
    // Architecture and module name of each V3 record; an empty name is compiled Java code.
    std::vector<std::pair<std::uint16_t, std::string>> records;
    std::vector<std::string> expectedPaths;
};

TEST(JitFileReaderTest, SixtyFourBitModulesAreRenamedWhenAJitProfilerFileHoldsBothWidths) {
    const std::string path = "/opt/app/a.so";
    const ModuleNameCase cases[] = {
        {"both widths", 1, {{0, path}, {1, path}, {2, path}}, {path, path + " (64)", path}},
        {"default names too", 1, {{0, ""}, {1, ""}}, {"[Compiled Java code]", "[Compiled Java code] (64)"}},
        {"64-bit only", 1, {{1, path}, {1, path}}, {path, path}},
        {"another collector", 2, {{0, path}, {1, path}}, {path, path}},
        {"no collector", 0, {{0, path}, {1, path}}, {path, path}},
    };
    for (const ModuleNameCase& expected : cases) {
        TraceWriter trace;
        if (expected.collector != 0)
            trace.collectorType(expected.collector);
        for (std::size_t i = 0; i < expected.records.size(); ++i) {
            LoadRecord load = methodAt(static_cast<std::uint32_t>(i + 1), 0x1000 * (i + 1), 0x10, 0x100);
            load.architecture = expected.records[i].first;
            load.moduleName = expected.records[i].second;
            load.languageType = load.moduleName.empty() ? korvane_3_10::kLanguageJava : 0;
            trace.loadV3(load);
        }
        JitDataManager manager;
        ASSERT_EQ(meSuccess, read(trace, manager).result) << expected.name;
        for (std::size_t i = 0; i < expected.records.size(); ++i) {
            const JitMethod& method = methodNamed(manager, "C::m" + std::to_string(i + 1));
            EXPECT_EQ(expected.expectedPaths[i], method.getModule()->getFilePath()) << expected.name << " " << i;
            EXPECT_EQ(expected.records[i].first, method.getModule()->getArchitecture()) << expected.name << " " << i;
        }
    }
}

} // namespace
