// Inline load records and update V2 records as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::dmFull;
using korvane_3_10::dmModulesOnly;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::UpdateV2Record;

DecoderSetup searching(const FakeRegionSearch& search, korvane_3_10::decoding_mode_t mode = dmFull) {
    DecoderSetup setup = withMode(mode);
    setup.search = &search;
    return setup;
}

// An inline keeps its raw ids, one region without jit RVA, and its line table at jit RVA 0.
TEST(InlineRecordTest, DecodesTheInlineWithOneRegionAndNoJitRva) {
    for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        const Decoded decoded = decodeLast(TraceWriter().inlineLoad(richInlineRecord()), withMode(mode));
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ(std::string("raw 5b/4d token 0 load 5100 rva 0\n"
                              "name geo::Point::length()\n"
                              "module /opt/app/lib/app.so arch 1\n"
                              "source Point.cs  0 3\n"
                              "region 7f0000001008+8 rva 0 load 5100 pid 4242 host 3 ") +
                      (mode == dmFull ? "bytes 4041424344454647\n" : "no bytes\n") + "lines 0+8 m2s n2m n2s 0-4:20 4-8:21\n",
                  describe(*decoded.method));
        EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
    }
}

TEST(InlineRecordTest, TheParentIdIsTheMethodIdOfTheParentsLoadRecord) {
    const InlineRecord child = richInlineRecord();
    InlineRecord orphan = child;
    orphan.parentId = 0;
    InlineRecord self = child;
    self.parentId = self.methodId;
    const std::vector<Decoded> all =
        decodeAll(TraceWriter().loadV3(richLoadRecord()).inlineLoad(child).inlineLoad(orphan).inlineLoad(self));
    ASSERT_EQ(4u, all.size());
    EXPECT_EQ(all[0].method->getMethodId(), all[1].method->getParentId());
    EXPECT_NE(all[1].method->getMethodId(), all[1].method->getParentId());
    // A parent id of 0 hashes the inline's own content: no raw id road.
    EXPECT_FALSE(all[2].method->getParentId().isEmpty());
    EXPECT_NE(all[0].method->getMethodId(), all[2].method->getParentId());
    EXPECT_NE(all[2].method->getMethodId(), all[2].method->getParentId());
    EXPECT_EQ(all[3].method->getMethodId(), all[3].method->getParentId());
}

TEST(InlineAndUpdateRecordTest, InvalidFieldsAreRefusedWithTheirValueBeforeAnySearch) {
    const auto inlineWith = [](void (*spoil)(InlineRecord&)) {
        InlineRecord record = richInlineRecord();
        spoil(record);
        return TraceWriter().inlineLoad(record);
    };
    const auto updateWith = [](void (*spoil)(UpdateV2Record&)) {
        UpdateV2Record record = richUpdateRecord();
        spoil(record);
        return TraceWriter().updateV2(record);
    };
    const std::pair<TraceWriter, std::string> refusals[] = {
        {inlineWith([](InlineRecord& r) { r.loadTime = 0; }), "Invalid load time: 0"},
        {inlineWith([](InlineRecord& r) { r.rangeCount = 2; }), "Invalid number of code regions: 0x2"},
        {inlineWith([](InlineRecord& r) { r.rangeCount = 0; }), "Invalid number of code regions: 0"},
        {inlineWith([](InlineRecord& r) { r.startAddress = 0; }), "Invalid start address of code range: 0"},
        {inlineWith([](InlineRecord& r) { r.length = 0; }), "Invalid size of code range: 0"},
        {inlineWith([](InlineRecord& r) { r.code.clear(); }), "Invalid number of code range's bytes: 0"},
        {updateWith([](UpdateV2Record& r) { r.loadTime = 0; }), "Invalid load time: 0"},
        {updateWith([](UpdateV2Record& r) { r.startAddress = 0; }), "Invalid start address of code range: 0"},
        {updateWith([](UpdateV2Record& r) { r.length = 0; }), "Invalid length of code range: 0"},
        {updateWith([](UpdateV2Record& r) { r.code.clear(); }), "Invalid number of code range's bytes: 0"},
    };
    for (const auto& refusal : refusals) {
        for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
            SCOPED_TRACE(refusal.second + " in mode " + std::to_string(mode));
            const FakeRegionSearch search = foundRegion();
            LogCapture log(log4cplus::ERROR_LOG_LEVEL);
            const Decoded decoded = decodeLast(refusal.first, searching(search, mode));
            EXPECT_FALSE(decoded.accepted);
            EXPECT_EQ(0u, decoded.method->regionCount());
            EXPECT_TRUE(search.asked.empty());
            EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
            EXPECT_EQ(1u, log.count(refusal.second + ", at file: "));
        }
    }
}

// Without a search the update is a method of its own: length and codeSize go on as they stand.
TEST(UpdateRecordTest, WithoutASearchTheRecordStandsAlone) {
    UpdateV2Record record = richUpdateRecord();
    record.code = {0xaa, 0xbb};
    const Decoded decoded = decodeLast(TraceWriter().updateV2(record));
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ("raw 0/0 token 0 load 6000 rva 1000\nname \nmodule [Dynamic code] arch 1 bogus\n"
              "region 7f0000001004+4 rva 0 load 6000 pid 4242 host 3 bytes aabb\n",
              describe(*decoded.method));
    EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
}

// The found region is copied with the new bytes and a new jit RVA range; it keeps its own bytes.
TEST(UpdateRecordTest, AFoundRegionIsCopiedWithTheNewBytesAndANewJitRvaRange) {
    for (korvane_3_10::decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        const FakeRegionSearch search = foundRegion();
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Decoded decoded = decodeLast(TraceWriter().updateV2(richUpdateRecord()), searching(search, mode));
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ((std::vector<std::vector<korvane_3_10::u64_t>>{{kRegionStart + 4, 0x6000, kPid, kHostId}}),
                  search.asked);
        EXPECT_EQ(1u, log.count("Update range: 0x7f0000001004-0x7f0000001008, loadTime = 0x6000"));
        EXPECT_EQ(std::string("raw 4d/0 token 0 load 6000 rva 1000\nname \nmodule [Dynamic code] arch 1 bogus\n"
                              "region 7f0000001000+10 rva 1000 load 6000 pid 4242 host 3 ") +
                      (mode == dmFull ? "bytes 00010203aabbccdd08090a0b0c0d0e0f\n" : "no bytes\n"),
                  describe(*decoded.method));
        EXPECT_EQ(kStartJitRva + 0x10, decoded.nextJitRva);
        EXPECT_EQ(codeBytes(0x10, 0), bytesOf(search.m_region->getBytes()));
        EXPECT_EQ(mode == dmFull ? 1u : 0u, decoded.method->codeRegions()[0]->markupRanges().size());
    }
}

TEST(UpdateRecordTest, TheUpdatedMethodHashesToTheFoundMethodsId) {
    FakeRegionSearch search = foundRegion();
    search.m_method = decodeLast(TraceWriter().loadV3(richLoadRecord())).method;
    const Decoded updated = decodeLast(TraceWriter().updateV2(richUpdateRecord()), searching(search));
    ASSERT_TRUE(updated.accepted);
    EXPECT_EQ(search.m_method->getMethodId(), updated.method->getMethodId());
}

TEST(UpdateRecordTest, TheFoundRegionDecidesWhetherAnUpdateFits) {
    const struct {
        korvane_error_t searchResult;
        korvane_3_10::address_t startAddress;
        korvane_3_10::u32_t length;
        bool accepted;
        korvane_3_10::jit_rva_t next;
        std::string message;
    } cases[] = {
        {meSuccess, kRegionStart, 0x10, true, kStartJitRva + 0x10, ""},
        {meSuccess, kRegionStart, 0x11, false, kStartJitRva,
         "Couldn't update the detected range (0x7f0000001000-0x7f0000001010) because it's size is small"},
        {meNotFound, kRegionStart, 4, false, kStartJitRva, "Couldn't find a range to be updated"},
        // Only the lengths are compared; the region refuses the bytes, and the jit RVAs stay taken.
        {meSuccess, kRegionStart - 1, 2, false, kStartJitRva + 0x10, ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << expected.startAddress << " length " << expected.length);
        FakeRegionSearch search = foundRegion();
        search.m_result = expected.searchResult;
        UpdateV2Record record = richUpdateRecord();
        record.startAddress = expected.startAddress;
        record.length = expected.length;
        record.code = codeBytes(expected.length, 0x60);
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = decodeLast(TraceWriter().updateV2(record), searching(search));
        EXPECT_EQ(expected.accepted, decoded.accepted);
        EXPECT_EQ(expected.next, decoded.nextJitRva);
        EXPECT_TRUE(expected.message.empty() || log.count(expected.message + ", at file: ") == 1);
    }
}

} // namespace
