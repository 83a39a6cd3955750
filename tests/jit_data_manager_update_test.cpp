// Code updates written over the kept bytes of loaded regions.
#include "method_builder.h"
#include "test_support.h"

#include "jitreader/jit_trace_format.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_3_10;
using korvane_test::bytesOf;
using korvane_test::kHost;
using korvane_test::kPid;
using korvane_test::LogCapture;
using korvane_test::makeBytes;
using korvane_test::makeMethod;
using korvane_test::makeRegion;

typedef std::vector<unsigned char> Bytes;

const Bytes kOriginal = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes kPatch = {0xaa, 0xbb, 0xcc, 0xdd};
const Bytes kPatchedHead = {0xaa, 0xbb, 0xcc, 0xdd, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes kPatchAlone = {0xaa, 0xbb, 0xcc, 0xdd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

// Method 100 holds 16 bytes at 0x1000 from time 10; method 101 sits at 0x2000.
class JitDataManagerUpdateTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager.setCollectorType(ctJitProfiler);
        region = makeRegion(0x1000, 16, 0x100, 10);
        region->setContent(makeBytes(kOriginal));
        load(makeMethod(100, 10, {region}));
        load(makeMethod(101, 10, {makeRegion(0x2000, 16, 0x200, 10)}));
    }

    void load(JitMethod::Ptr method) { ASSERT_EQ(meSuccess, manager.processMethodLoadRecord(kPid, kHost, method)); }

    korvane_error_t update(u32_t id, u64_t start, u32_t length, const Bytes& bytes, u64_t loadTime = 20) {
        Region::Ptr patch = makeRegion(start, length, 0x900, loadTime);
        if (!bytes.empty())
            patch->setContent(makeBytes(bytes));
        JitMethod::Ptr method = makeMethod(id, loadTime, {patch});
        return manager.processMethodUpdateRecord(kPid, kHost, method);
    }

    JitDataManager manager;
    Region::Ptr region;
};

TEST_F(JitDataManagerUpdateTest, BytesInsideTheRegionAreReplaced) {
    struct Case {
        const char* name;
        u64_t start;
        u32_t length;
        Bytes bytes;
        u64_t loadTime;
        Bytes expected;
    };
    const std::vector<Case> cases = {
        {"first four", 0x1000, 4, kPatch, 20, kPatchedHead},
        {"middle four", 0x1004, 4, kPatch, 20, {0, 1, 2, 3, 0xaa, 0xbb, 0xcc, 0xdd, 8, 9, 10, 11, 12, 13, 14, 15}},
        {"last four", 0x100c, 4, kPatch, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0xaa, 0xbb, 0xcc, 0xdd}},
        {"at the load time itself", 0x1000, 4, kPatch, 10, kPatchedHead},
        {"all of it", 0x1000, 16, Bytes(16, 0xee), 20, Bytes(16, 0xee)},
        // The whole range takes as many bytes as the update brings; the rest is cleared.
        {"all of it from fewer bytes", 0x1000, 16, kPatch, 20, kPatchAlone},
        // More bytes than the range never reach past the region's image.
        {"all of it from more bytes", 0x1000, 16, Bytes(40, 0x11), 20, Bytes(16, 0x11)},
        {"a part from fewer bytes", 0x1004, 8, {0xaa}, 20, {0, 1, 2, 3, 0xaa, 0, 0, 0, 0, 0, 0, 0, 12, 13, 14, 15}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        region->content()->assign(kOriginal.data(), static_cast<u32_t>(kOriginal.size()));
        EXPECT_EQ(meSuccess, update(100, c.start, c.length, c.bytes, c.loadTime));
        EXPECT_EQ(c.expected, bytesOf(*region));
    }
}

TEST_F(JitDataManagerUpdateTest, UnfitUpdatesAreRefusedAndChangeNothing) {
    struct Case {
        const char* name;
        u32_t id;
        u64_t start;
        u32_t length;
        u64_t loadTime;
        const char* message;
    };
    const std::vector<Case> cases = {
        {"one byte past the end", 100, 0x100d, 4, 20,
         "Couldn't accept update (method id = 0x64, ip range = 0x100d-0x1011) because it overlaps parent's ip range "
         "0x1000-0x1010"},
        {"another method's code", 101, 0x1000, 4, 20,
         "Couldn't accept update (method id = 0x65) because a range to be updated has different method id = 0x64"},
        {"before any code", 100, 0x1000, 4, 5,
         "Couldn't accept update (method id = 0x64) because a range to be updated is not found"},
        {"no id", 0, 0x1000, 4, 20, "Couldn't accept update because method ID is 0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        EXPECT_EQ(meNotFound, update(c.id, c.start, c.length, kPatch, c.loadTime));
        EXPECT_TRUE(log.contains(c.message));
        EXPECT_EQ(kOriginal, bytesOf(*region));
    }
}

TEST_F(JitDataManagerUpdateTest, UpdatesNeedOneRangeBytesOnBothSidesAndTheProfiler) {
    LogCapture log;
    Region::Ptr first = makeRegion(0x1000, 4, 0x900, 20);
    Region::Ptr second = makeRegion(0x1008, 4, 0x904, 20);
    first->setContent(makeBytes(kPatch));
    second->setContent(makeBytes(kPatch));
    JitMethod::Ptr twoRanges = makeMethod(100, 20, {first, second});
    EXPECT_EQ(meNotFound, manager.processMethodUpdateRecord(kPid, kHost, twoRanges));
    EXPECT_TRUE(log.contains("Couldn't accept update (method id = 0x64) because it has multiple code ranges"));

    EXPECT_EQ(meNotFound, update(100, 0x1000, 4, Bytes()));
    EXPECT_EQ(meNotFound, update(101, 0x2000, 4, kPatch));
    EXPECT_EQ(kOriginal, bytesOf(*region));

    manager.setCollectorType(0);
    EXPECT_EQ(meNotFound, update(100, 0x1000, 4, kPatch));
    EXPECT_TRUE(log.contains("Couldn't accept update because jit file must be                                      "
                             "collected by old version of Zelphy JIT agent"));
    EXPECT_EQ(kOriginal, bytesOf(*region));
}

// A region whose record carried fewer bytes than its length.
TEST_F(JitDataManagerUpdateTest, ShortImagesAreNeverOverrun) {
    region->setContent(makeBytes({0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(meSuccess, update(100, 0x1004, 8, Bytes(8, 0xaa)));
    EXPECT_EQ(Bytes({0, 1, 2, 3, 0xaa, 0xaa}), bytesOf(*region));
    EXPECT_EQ(meSuccess, update(100, 0x100c, 4, kPatch));
    EXPECT_EQ(Bytes({0, 1, 2, 3, 0xaa, 0xaa}), bytesOf(*region));
}

} // namespace
