// The file-backed trace writer appended to from many threads at once.
#include "test_support.h"
#include "trace_builder.h"

#include "tracewriter/trace_file.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using korvane_test::methodAt;
using korvane_test::resolverOver;
using korvane_test::TempDir;
using korvane_tracewriter::TraceFile;
using korvane_tracewriter::TraceWriter;

TEST(TraceFileConcurrencyTest, RecordsFromManyThreadsAllArriveWhole) {
    const std::uint32_t threads = 4, perThread = 100;
    TempDir dir;
    std::string problem;
    const std::unique_ptr<TraceFile> file = TraceFile::create(dir.file("host.77.jit"), 1, problem);
    ASSERT_TRUE(file) << problem;
    std::vector<std::thread> writers;
    for (std::uint32_t thread = 0; thread < threads; ++thread)
        writers.emplace_back([&file, thread] {
            std::string failure;
            for (std::uint32_t id = thread * perThread + 1; id <= (thread + 1) * perThread; ++id)
                file->append(TraceWriter().loadV3(methodAt(id, 0x10000 + id * 0x100, 0x40, 10, "m")), failure);
        });
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(threads * perThread, korvane_test::methodNames(*resolverOver({dir.str()})).size());
}

} // namespace
