// The trace writer and its file: borrowed code is written as a copy would be; records survive a kill; bad paths are refused.
#include "test_support.h"
#include "trace_builder.h"

#include "tracewriter/trace_file.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using korvane_test::methodAt;
using korvane_test::resolverOver;
using korvane_test::TempDir;
using korvane_tracewriter::TraceFile;
using korvane_tracewriter::TraceWriter;

TEST(TraceFileTest, RecordsAppendedBeforeAKillSurviveIt) {
    TempDir dir;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string problem;
        const std::unique_ptr<TraceFile> file = TraceFile::create(dir.file("host.77.jit"), 1, problem);
        for (std::uint32_t id = 1; file && id <= 50; ++id)
            file->append(TraceWriter().loadV3(methodAt(id, 0x10000 + id * 0x100, 0x40, 10, "m")), problem);
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(50u, korvane_test::methodNames(*resolverOver({dir.str()})).size());
}

TEST(TraceFileTest, AFileThatCantBeMadeIsRefusedWithItsReason) {
    std::string problem;
    EXPECT_FALSE(TraceFile::create("/proc/korvane-none/host.1.jit", 1, problem));
    EXPECT_NE(std::string::npos, problem.find("/proc/korvane-none/host.1.jit")) << problem;
}

TEST(TraceWriterTest, BorrowedCodeIsWrittenAsItsCopyWouldBe) {
    for (const std::uint32_t length : {1u, 0x40u, 0x12345u}) {
        SCOPED_TRACE(length);
        korvane_tracewriter::LoadRecord copied = methodAt(1, 0x10000, length, 10, "m");
        for (std::size_t i = 0; i < copied.ranges.front().code.size(); ++i)
            copied.ranges.front().code[i] = static_cast<std::uint8_t>(i * 7);
        korvane_tracewriter::LoadRecord borrowed = copied;
        borrowed.ranges.front().code.clear();
        borrowed.ranges.front().borrowedCode = copied.ranges.front().code.data();
        EXPECT_EQ(TraceWriter().loadV3(copied).bytes(), TraceWriter().loadV3(borrowed).bytes());
    }
}

} // namespace
