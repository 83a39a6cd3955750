// The lazy front end over real trace directories: what a sample costs and what it gets.
#include "test_support.h"
#include "trace_builder.h"

#include "jitreader/module.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

namespace {

using namespace korvane_3_10;
using korvane_test::loaderOver;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

typedef boost::intrusive_ptr<IJitLoader> LoaderPtr;

TEST(JitLoaderTest, NoDirectoriesGiveALoaderThatKnowsNothing) {
    const LoaderPtr loader = loaderOver({});
    ASSERT_TRUE(loader);
    jit_rva_t jitRva = 0;
    IModule::Ptr module;
    EXPECT_EQ(meNotFound, loader->resolveJitPoint(10, 0x1000, 1, 1, &jitRva, module));
    u32_t hostId = 9;
    EXPECT_EQ(meSuccess, loader->getHostIdByName("unknown", &hostId));
    EXPECT_EQ(0u, hostId);
    EXPECT_EQ(meInvalidArgument, loader->getHostIdByName("unknown", nullptr));
    EXPECT_FALSE(loaderOver({"/nonexistent/korvane"}));
}

// Host "h": process 1 has a method at 0x1000 from time 10; process 2 has one file
// that is cut off in its second record.
class JitLoaderFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("h.1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "run")));
        dir.write("h.2-a.jit", profilerTrace()
                                             .loadV3(methodAt(1, 0x5000, 0x40, 10, "kept"))
                                             .loadV3(methodAt(2, 0x6000, 0x40, 10, "cut"))
                                             .cutOff(3));
        dir.write("h.2-b.jit", profilerTrace().loadV3(methodAt(3, 0x7000, 0x40, 10, "behind")));
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        loader = loaderOver({dir.str()});
        ASSERT_TRUE(loader);
        EXPECT_EQ(0u, log.count("JIT TRACE: "));
        ASSERT_EQ(meSuccess, loader->getHostIdByName("h", &hostId));
        ASSERT_EQ(1u, hostId);
    }

    korvane_error_t resolve(u64_t timestamp, address_t address, u32_t pid) {
        return loader->resolveJitPoint(timestamp, address, pid, hostId, &jitRva, module);
    }

    TempDir dir;
    LoaderPtr loader;
    u32_t hostId = 0;
    jit_rva_t jitRva = 0xdead;
    IModule::Ptr module;
};

TEST_F(JitLoaderFilesTest, AProcessIsDecodedAtItsFirstSampleOnly) {
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(meSuccess, resolve(10, 0x1004, 1));
    EXPECT_EQ(1u, log.count("JIT TRACE: MethodLoad"));
    // The damaged process 2 stays untouched.
    EXPECT_FALSE(log.contains("Couldn't read content"));
    const jit_rva_t first = jitRva;
    ASSERT_TRUE(module);
    EXPECT_STREQ("/opt/app/librun.so", module->getFilePath());

    EXPECT_EQ(meSuccess, resolve(99, 0x103f, 1));
    EXPECT_EQ(first + 0x3b, jitRva);
    EXPECT_EQ(1u, log.count("JIT TRACE: MethodLoad"));
}

TEST_F(JitLoaderFilesTest, MissesLeaveTheCallersValuesAlone) {
    struct Case {
        u64_t timestamp;
        address_t address;
        u32_t pid;
        u32_t host;
    };
    const IModule::Ptr sentinel(new Module("sentinel", meNotFound, arch_xa64));
    // Before the load, past the code, another process, another host.
    for (const Case& c : std::vector<Case>{{9, 0x1004, 1, 1}, {10, 0x1040, 1, 1}, {10, 0x1004, 3, 1}, {10, 0x1004, 1, 2}}) {
        module = sentinel;
        EXPECT_EQ(meNotFound, loader->resolveJitPoint(c.timestamp, c.address, c.pid, c.host, &jitRva, module));
        EXPECT_EQ(0xdeadu, jitRva);
        EXPECT_EQ(sentinel, module);
    }
}

// The damaged file's code comes back on every sample of its process, and
// every time its files are read from the first one on.
TEST_F(JitLoaderFilesTest, ADamagedFileFailsEverySampleOfItsProcess) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        SCOPED_TRACE(attempt);
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        EXPECT_EQ(meMalformedRecord, resolve(10, 0x5004, 2));
        EXPECT_EQ(2u, log.count("JIT TRACE: MethodLoad"));
        EXPECT_EQ(0xdeadu, jitRva);
    }
}

} // namespace
