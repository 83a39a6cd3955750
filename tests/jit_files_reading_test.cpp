// When catalogued files are decoded, and what a damaged file costs: read all at
// once, read by process, and lazily by the loader at a process's first sample.
#include "model_builders.h"
#include "trace_builder.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_files_manager.h"
#include "jitreader/module.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <string>
#include <vector>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::methodNames;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

typedef std::vector<std::string> Names;

const u32_t kUnknownType = 99;

// The second file of process 7: two methods, with a record no reader knows between them when damaged.
korvane_tracewriter::TraceWriter secondFile(bool damaged) {
    korvane_tracewriter::TraceWriter trace = profilerTrace().loadV3(methodAt(2, 0x2000, 0x40, 10, "second"));
    if (damaged)
        trace.sized(kUnknownType, {1, 2, 3, 4});
    return trace.loadV3(methodAt(3, 0x3000, 0x40, 10, "lost"));
}

// Host "h": process 1 has one file; process 7 has three, of which the second
// breaks off after its first method.
class JitFilesReadingTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("h.1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "run")));
        dir.write("h.7-1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "first")));
        damaged = dir.write("h.7-2.jit", secondFile(true));
        dir.write("h.7-3.jit", profilerTrace().loadV3(methodAt(4, 0x4000, 0x40, 10, "third")));
        korvane_test::PathList paths({dir.str()});
        ASSERT_EQ(meSuccess, files.initialize(paths.iterator(), taAny));
        hostId = files.getHostID("h");
    }

    TempDir dir;
    std::string damaged;
    JitFilesManager files;
    JitDataManager manager;
    u32_t hostId = 0;
};

TEST_F(JitFilesReadingTest, ReadingAllTakesWhatItCanAndLogsTheRest) {
    LogCapture log;
    EXPECT_EQ(meSuccess, files.readJitFiles(dmFull, manager));
    EXPECT_EQ(Names({"App::first", "App::run", "App::second", "App::third"}), methodNames(manager));
    EXPECT_EQ(1u, log.count("Could not read jit file"));
    EXPECT_TRUE(log.contains("Could not read jit file " + damaged + ", at file: "));

    // Everything was dealt with: nothing is decoded a second time, in either form.
    log.clear();
    EXPECT_EQ(meSuccess, files.readJitFiles(dmFull, manager));
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(0u, log.count("JIT TRACE: MethodLoad"));
}

TEST_F(JitFilesReadingTest, ReadingOneProcessStopsAtTheFailingFileAndStartsOverOnceAFileChanged) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        SCOPED_TRACE(attempt);
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        EXPECT_EQ(meMalformedRecord, files.readJitFiles(7, hostId, dmModulesOnly, manager));
        EXPECT_EQ(Names({"App::first", "App::second"}), methodNames(manager));
        // The first file and the start of the second, never the third; and
        // nothing the second time, as no file changed.
        EXPECT_EQ(attempt == 0 ? 2u : 0u, log.count("JIT TRACE: MethodLoad"));
        EXPECT_FALSE(log.contains("Could not read jit file"));
    }
    EXPECT_EQ(meNotFound, files.readJitFiles(8, hostId, dmModulesOnly, manager));
    EXPECT_EQ(meNotFound, files.readJitFiles(7, hostId + 1, dmModulesOnly, manager));

    // Once the file is whole, the next call gets through and the process counts as read.
    secondFile(false).writeTo(damaged);
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(Names({"App::first", "App::lost", "App::second", "App::third"}), methodNames(manager));
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(0u, log.count("JIT TRACE: MethodLoad"));
}

// The loader decodes nothing until a sample of a process comes; misses leave
// the caller's values alone, and a damaged file fails every sample of its
// process, decoded once while the files stay as they are.
TEST_F(JitFilesReadingTest, LoaderReadsAProcessAtItsFirstSample) {
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({dir.str()});
    ASSERT_TRUE(loader);
    EXPECT_EQ(0u, log.count("JIT TRACE: "));
    u32_t host = 9;
    EXPECT_EQ(meSuccess, loader->getHostIdByName("h", &host));
    EXPECT_EQ(1u, host);
    EXPECT_EQ(meSuccess, loader->getHostIdByName("unknown", &host));
    EXPECT_EQ(0u, host);
    EXPECT_EQ(meInvalidArgument, loader->getHostIdByName("h", nullptr));

    jit_rva_t jitRva = 0xdead;
    IModule::Ptr module;
    EXPECT_EQ(meSuccess, loader->resolveJitPoint(10, 0x1004, 1, 1, &jitRva, module));
    EXPECT_EQ(1u, log.count("JIT TRACE: MethodLoad")) << "process 7 is left alone";
    ASSERT_TRUE(module);
    EXPECT_STREQ("/opt/app/librun.so", module->getFilePath());
    const jit_rva_t first = jitRva;
    EXPECT_EQ(meSuccess, loader->resolveJitPoint(99, 0x103f, 1, 1, &jitRva, module));
    EXPECT_EQ(first + 0x3b, jitRva);
    EXPECT_EQ(1u, log.count("JIT TRACE: MethodLoad"));

    struct Case {
        u64_t timestamp;
        address_t address;
        u32_t pid;
        u32_t host;
        korvane_error_t result;
        std::size_t decoded;
    };
    // Before the load, past the code, another process, another host; then the damaged process, read
    // from its first file at the first sample only (its later samples: HostileInputTest).
    const std::vector<Case> misses = {{9, 0x1004, 1, 1, meNotFound, 0},  {10, 0x1040, 1, 1, meNotFound, 0},
                                      {10, 0x1004, 3, 1, meNotFound, 0}, {10, 0x1004, 1, 2, meNotFound, 0},
                                      {10, 0x2004, 7, 1, meMalformedRecord, 2}};
    const IModule::Ptr sentinel(new Module("sentinel", meNotFound, arch_xa64));
    for (const Case& c : misses) {
        SCOPED_TRACE(::testing::Message() << c.timestamp << " " << std::hex << c.address << " " << c.pid);
        log.clear();
        jitRva = 0xdead;
        module = sentinel;
        EXPECT_EQ(c.result, loader->resolveJitPoint(c.timestamp, c.address, c.pid, c.host, &jitRva, module));
        EXPECT_EQ(0xdeadu, jitRva);
        EXPECT_EQ(sentinel, module);
        EXPECT_EQ(c.decoded, log.count("JIT TRACE: MethodLoad"));
    }
    EXPECT_EQ(meNotFound, korvane_test::loaderOver({})->resolveJitPoint(10, 0x1000, 1, 1, &jitRva, module));
    EXPECT_FALSE(korvane_test::loaderOver({dir.file("missing")}));
}

} // namespace
