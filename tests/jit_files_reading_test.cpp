// When catalogued files are decoded, and what a failing file costs, in both reading forms.
#include "test_support.h"
#include "trace_builder.h"

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_files_manager.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <set>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

const u32_t kUnknownType = 99;

std::set<std::string> methodNames(const JitDataManager& manager) {
    std::set<std::string> names;
    for (auto walk = manager.getJitMethods(); !walk.at_end(); walk.next())
        names.insert(walk.current()->getMethodName());
    return names;
}

// Process 7 of host "h" has three files; the second breaks off after one method.
class JitFilesReadingTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("h.7-1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "first")));
        damaged = dir.write("h.7-2.jit", profilerTrace()
                                             .loadV3(methodAt(2, 0x2000, 0x40, 10, "second"))
                                             .sized(kUnknownType, {1, 2, 3, 4})
                                             .loadV3(methodAt(3, 0x3000, 0x40, 10, "lost")));
        dir.write("h.7-3.jit", profilerTrace().loadV3(methodAt(4, 0x4000, 0x40, 10, "third")));
        PathList paths({dir.str()});
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
    EXPECT_EQ(std::set<std::string>({"App::first", "App::second", "App::third"}), methodNames(manager));
    EXPECT_EQ(1u, log.count("Could not read jit file"));
    EXPECT_TRUE(log.contains("Could not read jit file " + damaged + ", at file: src/jitreader/jit_files_manager"));

    // Everything was dealt with: nothing is decoded a second time, in either form.
    log.clear();
    EXPECT_EQ(meSuccess, files.readJitFiles(dmFull, manager));
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(0u, log.count("JIT TRACE: MethodLoad"));
}

TEST_F(JitFilesReadingTest, ReadingOneProcessStopsAtTheFailingFileAndStartsOverNextTime) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        SCOPED_TRACE(attempt);
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        EXPECT_EQ(meMalformedRecord, files.readJitFiles(7, hostId, dmModulesOnly, manager));
        EXPECT_EQ(std::set<std::string>({"App::first", "App::second"}), methodNames(manager));
        // The first file and the start of the second, each time; never the third.
        EXPECT_EQ(2u, log.count("JIT TRACE: MethodLoad"));
        EXPECT_FALSE(log.contains("Could not read jit file"));
    }

    // Once the file is whole, the next call gets through and the process counts as read.
    TempDir fixed;
    fixed.write("h.7-2.jit", profilerTrace()
                                 .loadV3(methodAt(2, 0x2000, 0x40, 10, "second"))
                                 .loadV3(methodAt(3, 0x3000, 0x40, 10, "lost")));
    boost::filesystem::remove(damaged);
    boost::filesystem::copy_file(fixed.file("h.7-2.jit"), damaged);
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(std::set<std::string>({"App::first", "App::second", "App::lost", "App::third"}), methodNames(manager));
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(meSuccess, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    EXPECT_EQ(0u, log.count("JIT TRACE: MethodLoad"));
}

TEST_F(JitFilesReadingTest, FileGoneSinceTheScan) {
    boost::filesystem::remove(damaged);
    EXPECT_EQ(meFileNotOpen, files.readJitFiles(7, hostId, dmModulesOnly, manager));
    LogCapture log;
    EXPECT_EQ(meSuccess, files.readJitFiles(dmFull, manager));
    EXPECT_TRUE(log.contains("Could not read jit file " + damaged));
    EXPECT_EQ(std::set<std::string>({"App::first", "App::third"}), methodNames(manager));
}

TEST_F(JitFilesReadingTest, UnknownProcessIsNotFound) {
    EXPECT_EQ(meNotFound, files.readJitFiles(8, hostId, dmModulesOnly, manager));
    EXPECT_EQ(meNotFound, files.readJitFiles(7, hostId + 1, dmModulesOnly, manager));
}

} // namespace
