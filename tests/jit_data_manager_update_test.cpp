// Code updates written over the kept bytes of loaded regions, read from real traces.
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

typedef std::vector<unsigned char> Bytes;

const Bytes kOriginal = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes kPatch = {0xaa, 0xbb, 0xcc, 0xdd};
const Bytes kShort = {0, 1, 2, 3, 4, 5};

// An update of method `id` at the address and time with the bytes.
LoadRecord update(u32_t id, u64_t start, u32_t length, const Bytes& bytes, u64_t loadTime = 20) {
    LoadRecord record = methodAt(id, start, length, loadTime, "update");
    record.ranges.front().code = bytes;
    return record;
}

// The bytes of method 100's region after a trace of the collector in which method 100 holds the image
// (16 bytes long) at 0x1000 from time 10, method 101 sits at 0x2000 without bytes, and the update follows.
Bytes imageAfter(u32_t collector, const Bytes& image, const LoadRecord& change) {
    LoadRecord holder = methodAt(100, 0x1000, 16, 10, "holder");
    holder.ranges.front().code = image;
    LoadRecord bare = methodAt(101, 0x2000, 16, 10, "bare");
    bare.ranges.front().code.clear();
    korvane_test::TempDir dir;
    dir.write("h.1.jit",
              TraceWriter().magic().collectorType(collector).loadV3(holder).loadV3(bare).functionUpdate(change));
    const auto resolver = korvane_test::resolverOver({dir.str()});
    EXPECT_TRUE(resolver);
    if (!resolver)
        return Bytes();
    const auto buffer = korvane_test::symbolsByName(*resolver).at("App::holder")->getRegions().current()->getBytes();
    const unsigned char* data = static_cast<const unsigned char*>(buffer->data());
    return Bytes(data, data + buffer->size());
}

// Updates that fit replace bytes of the image; the others are refused aloud and change nothing.
TEST(JitDataManagerUpdateTest, UpdatesReplaceBytesInsideTheirMethodsRegion) {
    LoadRecord twoRanges = update(100, 0x1000, 4, kPatch);
    twoRanges.ranges.push_back({0x1008, 4, kPatch});
    const Bytes patchedHead = {0xaa, 0xbb, 0xcc, 0xdd, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const struct {
        const char* name;
        u32_t collector;
        Bytes image;
        LoadRecord change;
        Bytes expected;
        const char* message;
    } cases[] = {
        {"first four", 1, kOriginal, update(100, 0x1000, 4, kPatch), patchedHead, nullptr},
        {"middle four", 1, kOriginal, update(100, 0x1004, 4, kPatch),
         {0, 1, 2, 3, 0xaa, 0xbb, 0xcc, 0xdd, 8, 9, 10, 11, 12, 13, 14, 15}, nullptr},
        {"last four", 1, kOriginal, update(100, 0x100c, 4, kPatch),
         {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0xaa, 0xbb, 0xcc, 0xdd}, nullptr},
        {"at the load time itself", 1, kOriginal, update(100, 0x1000, 4, kPatch, 10), patchedHead, nullptr},
        // The whole range takes as many bytes as the update brings; the rest is cleared.
        {"all of it from fewer bytes", 1, kOriginal, update(100, 0x1000, 16, kPatch),
         {0xaa, 0xbb, 0xcc, 0xdd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, nullptr},
        // More bytes than the range never reach past the region's image.
        {"all of it from more bytes", 1, kOriginal, update(100, 0x1000, 16, Bytes(40, 0x11)), Bytes(16, 0x11),
         nullptr},
        {"a part from fewer bytes", 1, kOriginal, update(100, 0x1004, 8, {0xaa}),
         {0, 1, 2, 3, 0xaa, 0, 0, 0, 0, 0, 0, 0, 12, 13, 14, 15}, nullptr},
        // An image shorter than its region is never overrun.
        {"over a short image", 1, kShort, update(100, 0x1004, 8, Bytes(8, 0xaa)), {0, 1, 2, 3, 0xaa, 0xaa}, nullptr},
        {"past a short image", 1, kShort, update(100, 0x100c, 4, kPatch), kShort, nullptr},
        {"one byte past the end", 1, kOriginal, update(100, 0x100d, 4, kPatch), kOriginal,
         "Couldn't accept update (method id = 0x64, ip range = 0x100d-0x1011) because it overlaps parent's ip range "
         "0x1000-0x1010"},
        {"another method's code", 1, kOriginal, update(101, 0x1000, 4, kPatch), kOriginal,
         "Couldn't accept update (method id = 0x65) because a range to be updated has different method id = 0x64"},
        {"before any code", 1, kOriginal, update(100, 0x1000, 4, kPatch, 5), kOriginal,
         "Couldn't accept update (method id = 0x64) because a range to be updated is not found"},
        {"no id", 1, kOriginal, update(0, 0x1000, 4, kPatch), kOriginal,
         "Couldn't accept update because method ID is 0"},
        {"no bytes", 1, kOriginal, update(100, 0x1000, 4, Bytes()), kOriginal, nullptr},
        {"code without bytes", 1, kOriginal, update(101, 0x2000, 4, kPatch), kOriginal, nullptr},
        {"two ranges", 1, kOriginal, twoRanges, kOriginal,
         "Couldn't accept update (method id = 0x64) because it has multiple code ranges"},
        {"another collector", 0, kOriginal, update(100, 0x1000, 4, kPatch), kOriginal,
         "Couldn't accept update because jit file must be                                      "
         "collected by old version of Zelphy JIT agent"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        EXPECT_EQ(c.expected, imageAfter(c.collector, c.image, c.change));
        EXPECT_TRUE(!c.message || log.contains(c.message));
    }
}

} // namespace
