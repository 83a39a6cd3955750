// Code updates written over the kept bytes of loaded regions.
#include "model_builders.h"
#include "test_support.h"

#include "jitreader/jit_trace_format.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_3_10;
using korvane_test::bytesOf;
using korvane_test::kHost;
using korvane_test::kPid;
using korvane_test::LogCapture;
using korvane_test::bufferOf;
using korvane_test::methodOf;
using korvane_test::regionAt;

typedef std::vector<unsigned char> Bytes;

const Bytes kOriginal = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes kPatch = {0xaa, 0xbb, 0xcc, 0xdd};
const Bytes kRefused;

// Method 100 holds 16 bytes at 0x1000 from time 10; method 101 sits at 0x2000.
class JitDataManagerUpdateTest : public ::testing::Test, protected korvane_test::Store {
protected:
    void SetUp() override {
        manager.setCollectorType(ctJitProfiler);
        region = regionAt(0x1000, 16).rva(0x100).loaded(10);
        region->setContent(bufferOf(kOriginal));
        ASSERT_EQ(meSuccess, load(methodOf(100).loaded(10).with({region})));
        loadCode(101, 0x2000, 16, 0x200, 10);
    }

    korvane_error_t update(u32_t id, u64_t start, u32_t length, const Bytes& bytes, u64_t loadTime = 20) {
        Region::Ptr patch = regionAt(start, length).rva(0x900).loaded(loadTime);
        if (!bytes.empty())
            patch->setContent(bufferOf(bytes));
        JitMethod::Ptr method = methodOf(id).loaded(loadTime).with({patch});
        return manager.processMethodUpdateRecord(kPid, kHost, method);
    }

    Region::Ptr region;
};

// Updates that fit replace bytes of the image; the others are refused and change nothing.
TEST_F(JitDataManagerUpdateTest, UpdatesReplaceBytesInsideTheirMethodsRegion) {
    struct Case {
        const char* name;
        u32_t id;
        u64_t start;
        u32_t length;
        Bytes bytes;
        u64_t loadTime;
        Bytes expected;
        const char* message;
    };
    const Bytes patchedHead = {0xaa, 0xbb, 0xcc, 0xdd, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const std::vector<Case> cases = {
        {"first four", 100, 0x1000, 4, kPatch, 20, patchedHead, nullptr},
        {"middle four", 100, 0x1004, 4, kPatch, 20, {0, 1, 2, 3, 0xaa, 0xbb, 0xcc, 0xdd, 8, 9, 10, 11, 12, 13, 14, 15},
         nullptr},
        {"last four", 100, 0x100c, 4, kPatch, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0xaa, 0xbb, 0xcc, 0xdd},
         nullptr},
        {"at the load time itself", 100, 0x1000, 4, kPatch, 10, patchedHead, nullptr},
        // The whole range takes as many bytes as the update brings; the rest is cleared.
        {"all of it from fewer bytes", 100, 0x1000, 16, kPatch, 20,
         {0xaa, 0xbb, 0xcc, 0xdd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, nullptr},
        // More bytes than the range never reach past the region's image.
        {"all of it from more bytes", 100, 0x1000, 16, Bytes(40, 0x11), 20, Bytes(16, 0x11), nullptr},
        {"a part from fewer bytes", 100, 0x1004, 8, {0xaa}, 20,
         {0, 1, 2, 3, 0xaa, 0, 0, 0, 0, 0, 0, 0, 12, 13, 14, 15}, nullptr},
        {"one byte past the end", 100, 0x100d, 4, kPatch, 20, kRefused,
         "Couldn't accept update (method id = 0x64, ip range = 0x100d-0x1011) because it overlaps parent's ip range "
         "0x1000-0x1010"},
        {"another method's code", 101, 0x1000, 4, kPatch, 20, kRefused,
         "Couldn't accept update (method id = 0x65) because a range to be updated has different method id = 0x64"},
        {"before any code", 100, 0x1000, 4, kPatch, 5, kRefused,
         "Couldn't accept update (method id = 0x64) because a range to be updated is not found"},
        {"no id", 0, 0x1000, 4, kPatch, 20, kRefused, "Couldn't accept update because method ID is 0"},
        {"no bytes", 100, 0x1000, 4, Bytes(), 20, kRefused, nullptr},
        {"code without bytes", 101, 0x2000, 4, kPatch, 20, kRefused, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        region->content()->assign(kOriginal.data(), static_cast<u32_t>(kOriginal.size()));
        EXPECT_EQ(c.expected.empty() ? meNotFound : meSuccess, update(c.id, c.start, c.length, c.bytes, c.loadTime));
        EXPECT_EQ(c.expected.empty() ? kOriginal : c.expected, bytesOf(region->getBytes()));
        EXPECT_TRUE(!c.message || log.contains(c.message));
    }
}

TEST_F(JitDataManagerUpdateTest, UpdatesNeedOneRangeAndTheProfiler) {
    LogCapture log;
    Region::Ptr first = regionAt(0x1000, 4).rva(0x900).loaded(20);
    Region::Ptr second = regionAt(0x1008, 4).rva(0x904).loaded(20);
    first->setContent(bufferOf(kPatch));
    second->setContent(bufferOf(kPatch));
    JitMethod::Ptr twoRanges = methodOf(100).loaded(20).with({first, second});
    EXPECT_EQ(meNotFound, manager.processMethodUpdateRecord(kPid, kHost, twoRanges));
    EXPECT_TRUE(log.contains("Couldn't accept update (method id = 0x64) because it has multiple code ranges"));
    manager.setCollectorType(0);
    EXPECT_EQ(meNotFound, update(100, 0x1000, 4, kPatch));
    EXPECT_TRUE(log.contains("Couldn't accept update because jit file must be                                      "
                             "collected by old version of Zelphy JIT agent"));
    EXPECT_EQ(kOriginal, bytesOf(region->getBytes()));
}

// A region whose record carried fewer bytes than its length.
TEST_F(JitDataManagerUpdateTest, ShortImagesAreNeverOverrun) {
    region->setContent(bufferOf({0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(meSuccess, update(100, 0x1004, 8, Bytes(8, 0xaa)));
    EXPECT_EQ(Bytes({0, 1, 2, 3, 0xaa, 0xaa}), bytesOf(region->getBytes()));
    EXPECT_EQ(meSuccess, update(100, 0x100c, 4, kPatch));
    EXPECT_EQ(Bytes({0, 1, 2, 3, 0xaa, 0xaa}), bytesOf(region->getBytes()));
}

} // namespace
