// Reading whole .jit files into a data manager: what ends a file, what is skipped, and where records go.
#include "trace_builder.h"
#include "trace_decoding_support.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_reader.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using korvane_3_10::JitDataManager;
using korvane_3_10::JitFileReader;
using korvane_3_10::target_arch_t;
using korvane_3_10::taAny;
using korvane_3_10::taBits32;
using korvane_3_10::taBits64;
using korvane_test::DecoderSetup;
using korvane_test::JitMethod;
using korvane_test::LogCapture;
using korvane_test::Region;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::UpdateV2Record;
using korvane_tracewriter::Width;
namespace jt = korvane_3_10::jittrace;

// Method "App::m<id>" with one code range.
LoadRecord method(std::uint32_t id, std::uint64_t address, std::uint32_t length = 0x10, std::uint64_t loadTime = 0x100) {
    return korvane_test::methodAt(id, address, length, loadTime, "m" + std::to_string(id));
}

struct Reading {
    korvane_error_t result = meSuccess;
    bool finalized = false;
    korvane_3_10::jit_rva_t nextJitRva = 0;
};

// Reads the trace into the manager as the catalogue does: a fresh decoder whose search goes to the manager.
Reading read(const TraceWriter& trace, JitDataManager& manager, target_arch_t arch = taAny,
             DecoderSetup setup = DecoderSetup(), bool searchManager = true) {
    setup.search = searchManager ? &manager : nullptr;
    korvane_test::TraceFile file(trace, setup);
    LogCapture log;
    Reading reading;
    reading.result = JitFileReader::readJitFile(file.decoder(), arch, manager);
    reading.finalized = log.count("ENTER: void korvane_3_10::JitDataManager::finalize()") == 1;
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

typedef std::vector<std::string> Names;

TEST(JitFileReaderTest, TheCollectorTypeOfTheFileReachesTheManager) {
    for (std::uint32_t collector : {0u, 1u}) {
        JitDataManager manager;
        manager.setCollectorType(collector == 0 ? 1u : 0u);
        TraceWriter trace;
        if (collector != 0)
            trace.magic().collectorType(collector);
        const Reading reading = read(trace, manager);
        EXPECT_EQ(meSuccess, reading.result);
        EXPECT_TRUE(reading.finalized);
        EXPECT_EQ(collector, manager.getCollectorType()) << "a file without the record has no collector type";
    }
}

TEST(JitFileReaderTest, LoadRecordsOfEveryVersionReachTheManager) {
    JitDataManager manager;
    const Reading reading = read(TraceWriter()
                                     .magic()
                                     .loadV0(method(1, 0x1000))
                                     .loadV1(method(2, 0x2000))
                                     .loadV2(method(3, 0x3000))
                                     .loadV3(method(4, 0x4000), Width::Bits32),
                                 manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ((Names{"App::m1", "App::m2", "App::m3", "App::m4"}), methodNames(manager));
    EXPECT_EQ(4u, manager.jitRvaDomain().size());
    EXPECT_EQ(korvane_test::kStartJitRva + 0x40, reading.nextJitRva);
}

TEST(JitFileReaderTest, ASecondMagicEndsTheFile) {
    const TraceWriter cases[] = {
        TraceWriter().magic().loadV3(method(1, 0x1000)).magic().loadV3(method(2, 0x2000)),
        TraceWriter().loadV3(method(1, 0x1000)).magic().loadV3(method(2, 0x2000)),
        TraceWriter().loadV3(method(1, 0x1000)).magic().sized(3, {1}),
    };
    for (const TraceWriter& trace : cases) {
        JitDataManager manager;
        const Reading reading = read(trace, manager);
        EXPECT_EQ(meSuccess, reading.result);
        EXPECT_TRUE(reading.finalized);
        EXPECT_EQ(Names{"App::m1"}, methodNames(manager));
    }
}

TEST(JitFileReaderTest, ALoadRecordOfTheOtherWidthEndsTheFile) {
    const std::uint32_t narrow[] = {jt::FunctionLoad32, jt::FunctionLoad32_v1, jt::FunctionLoad32_v2,
                                    jt::FunctionLoad32_v3};
    const korvane_tracewriter::Bytes payloads[] = {
        korvane_tracewriter::payloadV0(method(2, 0x2000)), korvane_tracewriter::payloadV1(method(2, 0x2000)),
        korvane_tracewriter::payloadV2(method(2, 0x2000)), korvane_tracewriter::payloadV3(method(2, 0x2000))};
    for (target_arch_t arch : {taAny, taBits32, taBits64}) {
        for (int version = 0; version < 4; ++version) {
            for (bool is64 : {false, true}) {
                // Each 64-bit type follows its 32-bit one.
                const std::uint32_t type = narrow[version] + (is64 ? (version == 0 ? 2 : 1) : 0);
                SCOPED_TRACE("arch " + std::to_string(arch) + " type " + std::to_string(type));
                JitDataManager manager;
                // The record under test, then one of the wanted width that is read only if it was.
                const Width width = arch == taBits32 ? Width::Bits32 : Width::Bits64;
                const Reading reading =
                    read(TraceWriter().magic().sized(type, payloads[version]).loadV3(method(3, 0x3000), width),
                         manager, arch);
                const bool wanted = arch == taAny || (arch == taBits64) == is64;
                EXPECT_EQ(meSuccess, reading.result);
                EXPECT_TRUE(reading.finalized);
                EXPECT_EQ(wanted ? 2u : 0u, manager.jitMethods().size());
            }
        }
    }
}

TEST(JitFileReaderTest, InlineAndUpdateRecordsAreNotTestedForWidth) {
    InlineRecord inlined = korvane_test::inlineAt(0, 0, 0x1004, 4, 0x100, 7);
    UpdateV2Record update = korvane_test::richUpdateRecord();
    update.startAddress = 0x1008;
    update.loadTime = 0x200;
    JitDataManager manager;
    const Reading reading = read(TraceWriter()
                                     .loadV3(method(1, 0x1000))
                                     .inlineLoad(inlined, Width::Bits32)
                                     .updateV2(update)
                                     .loadV3(method(2, 0x2000), Width::Bits32)
                                     .loadV3(method(3, 0x3000)),
                                 manager, taBits64);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_EQ(Names{"App::m1"}, methodNames(manager));
    const JitMethod& parent = methodNamed(manager, "App::m1");
    EXPECT_EQ(1u, parent.codeRegions()[0]->inlinedRegions().size());
    EXPECT_EQ(2u, parent.regionCount()) << "the update joined the method it changed";
}

TEST(JitFileReaderTest, AFramingFailureStopsWithoutFinalising) {
    JitDataManager manager;
    const Reading reading = read(TraceWriter().magic().loadV3(method(1, 0x1000)).sized(15, {1}), manager);
    EXPECT_EQ(meMalformedRecord, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_EQ(Names{"App::m1"}, methodNames(manager)) << "what came before stays";
}

TEST(JitFileReaderTest, RecordsTheDecoderRefusesAreSkipped) {
    LoadRecord allEmpty = method(2, 0x2000);
    allEmpty.ranges[0].length = 0;
    InlineRecord noLoadTime = korvane_test::richInlineRecord();
    noLoadTime.loadTime = 0;
    const korvane_tracewriter::Bytes cutV2 = korvane_tracewriter::payloadV2(method(3, 0x3000));
    JitDataManager manager;
    LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    const Reading reading = read(TraceWriter()
                                     .loadV3(allEmpty)
                                     .sized(jt::FunctionLoad64_v2, korvane_tracewriter::Bytes(cutV2.begin(), cutV2.end() - 1))
                                     .inlineLoad(noLoadTime)
                                     .updateV2(UpdateV2Record())
                                     .loadV3(method(1, 0x1000)),
                                 manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(Names{"App::m1"}, methodNames(manager));
    EXPECT_EQ(1u, log.count("Failed to decode a UPDATE_V2 record, at file: src/jitreader/jit_file_reader.cpp:"));
}

TEST(JitFileReaderTest, AManagerFailureStopsTheFileWithItsCode) {
    JitDataManager manager;
    ASSERT_EQ(meSuccess, read(TraceWriter().loadV3(method(1, 0x1000)), manager).result);
    // A second file over the same jit RVA range: the manager refuses the overlap.
    Reading reading = read(TraceWriter().loadV3(method(2, 0x2000)).loadV3(method(3, 0x3000)), manager);
    EXPECT_EQ(meMalformedRecord, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_EQ((Names{"App::m1", "App::m2"}), methodNames(manager));

    // Under the JIT profiler an inlined V3 record has no parent id: the manager's code comes back.
    LoadRecord inlinedV3 = method(2, 0x1010, 0x10, 0x200);
    inlinedV3.isInlined = 1;
    JitDataManager viaLoad;
    reading = read(TraceWriter().collectorType(1).loadV3(inlinedV3).loadV3(method(3, 0x3000)), viaLoad);
    EXPECT_EQ(meNotFound, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_TRUE(viaLoad.jitMethods().empty());

    // An inline record whose code lies in no loaded method: always meMalformedRecord.
    JitDataManager viaInline;
    reading = read(TraceWriter().inlineLoad(korvane_test::inlineAt(0, 0, 0x5000, 4, 0x100, 7)).loadV3(method(3, 0x3000)),
                   viaInline);
    EXPECT_EQ(meMalformedRecord, reading.result);
    EXPECT_FALSE(reading.finalized);
    EXPECT_TRUE(viaInline.jitMethods().empty());
}

TEST(JitFileReaderTest, TheInlineFlagOfAV3RecordCarriesOverToOlderRecords) {
    LoadRecord inlinedV3 = method(2, 0x1010, 0x10, 0x200);
    inlinedV3.methodId = 0;
    inlinedV3.isInlined = 1;
    LoadRecord odd = method(5, 0x5000, 0x10, 0x500);
    odd.isInlined = 2;
    JitDataManager manager;
    const Reading reading = read(TraceWriter()
                                     .loadV3(method(1, 0x1000, 0x100))
                                     .loadV3(inlinedV3)
                                     .loadV2(method(3, 0x1020, 0x10, 0x300))
                                     .loadV3(method(4, 0x4000, 0x10, 0x400))
                                     .loadV3(odd),
                                 manager);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_EQ((Names{"App::m1", "App::m4", "App::m5"}), methodNames(manager));
    const Region& parent = *methodNamed(manager, "App::m1").codeRegions()[0];
    ASSERT_EQ(2u, parent.inlinedRegions().size());
    EXPECT_STREQ("App::m2", parent.inlinedMethods()[0]->getMethodName());
    EXPECT_STREQ("App::m3", parent.inlinedMethods()[1]->getMethodName());
    // A flag of 2 takes the load road, without jit RVAs; the older record decodes with its own.
    EXPECT_EQ(0u, methodNamed(manager, "App::m5").getStartJitRva());
    EXPECT_EQ(korvane_test::kStartJitRva + 0x100 + 0x10 + 0x10, reading.nextJitRva);
}

TEST(JitFileReaderTest, FunctionUpdatesAreAppliedInFullModeOnly) {
    LoadRecord update = method(1, 0x1004, 4, 0x200);
    update.ranges[0].code = {0xaa, 0xbb, 0xcc, 0xdd};
    const TraceWriter trace = TraceWriter().collectorType(1).loadV3(method(1, 0x1000)).functionUpdate(update);
    for (korvane_3_10::decoding_mode_t mode : {korvane_3_10::dmFull, korvane_3_10::dmModulesOnly}) {
        SCOPED_TRACE(mode);
        DecoderSetup setup;
        setup.mode = mode;
        JitDataManager manager;
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Reading reading = read(trace, manager, taAny, setup);
        EXPECT_EQ(meSuccess, reading.result);
        EXPECT_EQ(korvane_test::kStartJitRva + 0x14, reading.nextJitRva) << "the update is decoded in both modes";
        EXPECT_EQ(mode == korvane_3_10::dmFull ? 1u : 0u, log.count("Updated code region"));
        // Without bytes the manager would refuse the update aloud; it must not be asked at all.
        EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
        const Region& region = *methodNamed(manager, "App::m1").codeRegions()[0];
        EXPECT_TRUE(mode != korvane_3_10::dmFull || korvane_test::bytesOf(region.getBytes())[4] == 0xaa);
    }
}

TEST(JitFileReaderTest, AnUpdateTheManagerRefusesIsLoggedAndReadingGoesOn) {
    // Without a search, both updates stand alone at jit RVA 0 and the second overlaps the first.
    UpdateV2Record elsewhere = korvane_test::richUpdateRecord();
    elsewhere.startAddress = 0x9000;
    JitDataManager manager;
    LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    const Reading reading = read(
        TraceWriter().updateV2(korvane_test::richUpdateRecord()).updateV2(elsewhere).loadV3(method(1, 0x1000)),
        manager, taAny, DecoderSetup(), false);
    EXPECT_EQ(meSuccess, reading.result);
    EXPECT_TRUE(reading.finalized);
    EXPECT_EQ(1u, log.count("Failed to process a UPDATE_V2 record, at file: src/jitreader/jit_file_reader.cpp:"));
    EXPECT_EQ(2u, manager.jitMethods().size());
    EXPECT_NO_THROW(methodNamed(manager, "App::m1"));
}

TEST(JitFileReaderTest, SixtyFourBitModulesAreRenamedWhenAJitProfilerFileHoldsBothWidths) {
    const std::string path = "/opt/app/a.so";
    const struct {
        const char* name;
        std::uint32_t collector;
        // Architecture and module name of each V3 record; an empty name is compiled Java code.
        std::vector<std::pair<std::uint16_t, std::string>> records;
        Names paths;
    } cases[] = {
        {"both widths", 1, {{0, path}, {1, path}, {2, path}}, {path, path + " (64)", path}},
        {"default names too", 1, {{0, ""}, {1, ""}}, {"[Compiled Java code]", "[Compiled Java code] (64)"}},
        {"64-bit only", 1, {{1, path}, {1, path}}, {path, path}},
        {"another collector", 2, {{0, path}, {1, path}}, {path, path}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        TraceWriter trace;
        trace.collectorType(expected.collector);
        for (std::uint32_t i = 0; i < expected.records.size(); ++i) {
            LoadRecord load = method(i + 1, 0x1000 * (i + 1));
            load.architecture = expected.records[i].first;
            load.moduleName = expected.records[i].second;
            load.languageType = load.moduleName.empty() ? korvane_3_10::kLanguageJava : 0;
            trace.loadV3(load);
        }
        JitDataManager manager;
        ASSERT_EQ(meSuccess, read(trace, manager).result);
        for (std::uint32_t i = 0; i < expected.records.size(); ++i) {
            const JitMethod& decoded = methodNamed(manager, "App::m" + std::to_string(i + 1));
            EXPECT_EQ(expected.paths[i], decoded.getModule()->getFilePath()) << i;
            EXPECT_EQ(expected.records[i].first, decoded.getModule()->getArchitecture()) << i;
        }
    }
}

} // namespace
