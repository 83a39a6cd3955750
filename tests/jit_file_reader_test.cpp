// Reading whole .jit files into a data manager: what ends a file, what is skipped, and where records go.
#include "trace_builder.h"
#include "trace_decoding_support.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_file_reader.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::JitDataManager;
using korvane_3_10::target_arch_t;
using korvane_3_10::taAny;
using korvane_3_10::taBits32;
using korvane_3_10::taBits64;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::Width;
typedef std::vector<std::string> Names;

// Method "App::m<id>" with one code range.
LoadRecord method(std::uint32_t id, std::uint64_t address, std::uint32_t length = 0x10,
                  std::uint64_t loadTime = 0x100) {
    return methodAt(id, address, length, loadTime, "m" + std::to_string(id));
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
    TraceFile file(trace, setup);
    LogCapture log;
    Reading reading;
    reading.result = korvane_3_10::JitFileReader::readJitFile(file.decoder(), arch, manager);
    reading.finalized = log.count("ENTER: void korvane_3_10::JitDataManager::finalize()") == 1;
    reading.nextJitRva = file.decoder().nextJitRva();
    return reading;
}

const JitMethod& methodNamed(const JitDataManager& manager, const std::string& name) {
    for (auto walk = manager.getJitMethods(); !walk.at_end(); walk.next())
        if (name == walk.current()->getMethodName())
            return static_cast<const JitMethod&>(*walk.current());
    throw std::runtime_error("no method " + name);
}

TEST(JitFileReaderTest, WhatEndsAFileAndWhatIsSkipped) {
    LoadRecord allEmpty = method(2, 0x2000);
    allEmpty.ranges[0].length = 0;
    korvane_tracewriter::InlineRecord noLoadTime = richInlineRecord();
    noLoadTime.loadTime = 0;
    const Bytes cutV2 = korvane_tracewriter::payloadV2(method(3, 0x3000));
    LoadRecord inlinedV3 = method(2, 0x1010, 0x10, 0x200);
    inlinedV3.isInlined = 1;
    korvane_tracewriter::UpdateV2Record elsewhere = richUpdateRecord();
    elsewhere.startAddress = 0x9000;
    const struct {
        const char* name;
        TraceWriter trace;
        korvane_error_t result;
        Names names;
        std::string error; // logged once, if not empty
        bool searchManager;
    } cases[] = {
        {"every version", TraceWriter().magic().loadV0(method(1, 0x1000)).loadV1(method(2, 0x2000))
             .loadV2(method(3, 0x3000)).loadV3(method(4, 0x4000), Width::Bits32),
         meSuccess, {"App::m1", "App::m2", "App::m3", "App::m4"}, "", true},
        {"a second trace", TraceWriter().magic().loadV3(method(1, 0x1000)).magic().loadV3(method(2, 0x2000)),
         meSuccess, {"App::m1"}, "", true},
        {"a magic in the middle", TraceWriter().loadV3(method(1, 0x1000)).magic().loadV3(method(2, 0x2000)),
         meSuccess, {"App::m1"}, "", true},
        {"garbage behind a magic", TraceWriter().loadV3(method(1, 0x1000)).magic().sized(3, {1}),
         meSuccess, {"App::m1"}, "", true},
        {"a framing failure", TraceWriter().magic().loadV3(method(1, 0x1000)).sized(15, {1}),
         meMalformedRecord, {"App::m1"}, "", true},
        {"records the decoder refuses", TraceWriter().loadV3(allEmpty)
             .sized(jt::FunctionLoad64_v2, Bytes(cutV2.begin(), cutV2.end() - 1)).inlineLoad(noLoadTime)
             .updateV2(korvane_tracewriter::UpdateV2Record()).loadV3(method(1, 0x1000)),
         meSuccess, {"App::m1"}, "Failed to decode a UPDATE_V2 record, at file: src/jitreader/", true},
        // Without a search both updates stand alone at jit RVA 0, and the manager refuses the second.
        {"an update the manager refuses", TraceWriter().updateV2(richUpdateRecord())
             .updateV2(elsewhere).loadV3(method(1, 0x1000)),
         meSuccess, {"", "App::m1"}, "Failed to process a UPDATE_V2 record, at file: src/jitreader/", false},
        // Under the JIT profiler an inlined V3 record has no parent id: the manager's code comes back.
        {"an inlined load without parent", TraceWriter().collectorType(1).loadV3(inlinedV3).loadV3(method(3, 0x3000)),
         meNotFound, {}, "", true},
        {"an inline of no loaded code", TraceWriter().inlineLoad(inlineAt(0, 0, 0x5000, 4, 0x100, 7))
             .loadV3(method(3, 0x3000)), meMalformedRecord, {}, "", true},
    };
    for (const auto& file : cases) {
        SCOPED_TRACE(file.name);
        JitDataManager manager;
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Reading reading = read(file.trace, manager, taAny, DecoderSetup(), file.searchManager);
        EXPECT_EQ(file.result, reading.result);
        EXPECT_EQ(file.result == meSuccess, reading.finalized) << "finalised only at the end of the file";
        EXPECT_EQ(file.names, methodNames(manager));
        EXPECT_TRUE(file.error.empty() || log.count(file.error) == 1);
    }
}

TEST(JitFileReaderTest, ALoadRecordOfTheOtherWidthEndsTheFile) {
    const std::pair<std::uint32_t, Bytes> narrow[] = {
        {jt::FunctionLoad32, korvane_tracewriter::payloadV0(method(2, 0x2000))},
        {jt::FunctionLoad32_v1, korvane_tracewriter::payloadV1(method(2, 0x2000))},
        {jt::FunctionLoad32_v2, korvane_tracewriter::payloadV2(method(2, 0x2000))},
        {jt::FunctionLoad32_v3, korvane_tracewriter::payloadV3(method(2, 0x2000))}};
    for (target_arch_t arch : {taAny, taBits32, taBits64}) {
        for (const auto& record : narrow) {
            for (bool is64 : {false, true}) {
                // The 64-bit type of a version: FunctionLoad64 is two past FunctionLoad32, the others one.
                const std::uint32_t type = record.first + (is64 ? (record.first == jt::FunctionLoad32 ? 2 : 1) : 0);
                SCOPED_TRACE("arch " + std::to_string(arch) + " type " + std::to_string(type));
                // The record under test, then one of the wanted width that is read only if it was.
                const Width width = arch == taBits32 ? Width::Bits32 : Width::Bits64;
                JitDataManager manager;
                const TraceWriter trace =
                    TraceWriter().magic().sized(type, record.second).loadV3(method(3, 0x3000), width);
                const Reading reading = read(trace, manager, arch);
                EXPECT_EQ(meSuccess, reading.result);
                EXPECT_TRUE(reading.finalized);
                const bool wanted = arch == taAny || (arch == taBits64) == is64;
                EXPECT_EQ(wanted ? 2u : 0u, methodNames(manager).size());
            }
        }
    }
    // Inline and update records of any width are read.
    korvane_tracewriter::UpdateV2Record update = richUpdateRecord();
    update.startAddress = 0x1008;
    JitDataManager manager;
    EXPECT_EQ(meSuccess, read(TraceWriter()
                                  .loadV3(method(1, 0x1000))
                                  .inlineLoad(inlineAt(0, 0, 0x1004, 4, 0x100, 7), Width::Bits32)
                                  .updateV2(update)
                                  .loadV3(method(3, 0x3000)),
                              manager, taBits64)
                             .result);
    EXPECT_EQ((Names{"App::m1", "App::m3"}), methodNames(manager));
    EXPECT_EQ(2u, methodNamed(manager, "App::m1").regionCount()) << "the update joined the method it changed";
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
    EXPECT_EQ(kStartJitRva + 0x100 + 0x10 + 0x10, reading.nextJitRva);
}

TEST(JitFileReaderTest, FunctionUpdatesAreAppliedInFullModeOnly) {
    LoadRecord update = method(1, 0x1004, 4, 0x200);
    update.ranges[0].code = {0xaa, 0xbb, 0xcc, 0xdd};
    const TraceWriter trace = TraceWriter().collectorType(1).loadV3(method(1, 0x1000)).functionUpdate(update);
    for (korvane_3_10::decoding_mode_t mode : {korvane_3_10::dmFull, korvane_3_10::dmModulesOnly}) {
        SCOPED_TRACE(mode);
        JitDataManager manager;
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Reading reading = read(trace, manager, taAny, withMode(mode));
        EXPECT_EQ(meSuccess, reading.result);
        EXPECT_EQ(kStartJitRva + 0x14, reading.nextJitRva) << "the update is decoded in both modes";
        EXPECT_EQ(mode == korvane_3_10::dmFull ? 1u : 0u, log.count("Updated code region"));
        // Without bytes the manager would refuse the update aloud; it must not be asked at all.
        EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
        const Region& region = *methodNamed(manager, "App::m1").codeRegions()[0];
        EXPECT_TRUE(mode != korvane_3_10::dmFull || bytesOf(region.getBytes())[4] == 0xaa);
    }
}

TEST(JitFileReaderTest, SixtyFourBitModulesAreRenamedWhenAJitProfilerFileHoldsBothWidths) {
    const std::string path = "/opt/app/a.so";
    const struct {
        std::uint32_t collector;
        // Architecture and module name of each V3 record; an empty name is compiled Java code.
        std::vector<std::pair<std::uint16_t, std::string>> records;
        Names paths;
    } cases[] = {
        {1, {{0, path}, {1, path}, {2, path}}, {path, path + " (64)", path}},
        {1, {{0, ""}, {1, ""}}, {"[Compiled Java code]", "[Compiled Java code] (64)"}},
        {1, {{1, path}, {1, path}}, {path, path}},
        {2, {{0, path}, {1, path}}, {path, path}},
    };
    for (const auto& expected : cases) {
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
        Names paths;
        for (std::uint32_t i = 0; i < expected.records.size(); ++i)
            paths.push_back(methodNamed(manager, "App::m" + std::to_string(i + 1)).getModule()->getFilePath());
        EXPECT_EQ(expected.paths, paths) << "collector " << expected.collector;
    }
}

} // namespace
