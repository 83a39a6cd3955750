// Inline load records and update V2 records as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using korvane_3_10::decoding_mode_t;
using korvane_3_10::dmFull;
using korvane_3_10::dmModulesOnly;
using korvane_test::bytesOf;
using korvane_test::codeBytes;
using korvane_test::Decoded;
using korvane_test::DecoderSetup;
using korvane_test::FakeRegionSearch;
using korvane_test::kRegionStart;
using korvane_test::kStartJitRva;
using korvane_test::LogCapture;
using korvane_test::Region;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::UpdateV2Record;

DecoderSetup setupOf(decoding_mode_t mode, const FakeRegionSearch* search = nullptr) {
    DecoderSetup setup;
    setup.mode = mode;
    setup.search = search;
    return setup;
}

TEST(InlineRecordTest, DecodesTheInlineWithOneRegionAndNoJitRva) {
    const InlineRecord record = korvane_test::richInlineRecord();
    for (decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        SCOPED_TRACE(mode);
        const Decoded decoded = korvane_test::decodeLast(TraceWriter().inlineLoad(record), setupOf(mode));
        ASSERT_TRUE(decoded.accepted);
        const korvane_test::JitMethod& method = *decoded.method;
        EXPECT_EQ(91u, method.getRawMethodId());
        EXPECT_EQ(77u, method.getRawParentId());
        EXPECT_EQ(0u, method.getStartJitRva());
        EXPECT_EQ(record.loadTime, method.getLoadTime());
        ASSERT_EQ(1u, method.regionCount());
        const Region& region = *method.codeRegions()[0];
        EXPECT_EQ(0u, region.startJitRva());
        EXPECT_EQ(record.startAddress, region.startAddress());
        EXPECT_EQ(record.length, region.length());
        EXPECT_EQ(record.loadTime, region.loadTime());
        EXPECT_EQ(mode == dmFull ? record.code : korvane_tracewriter::Bytes(), bytesOf(region.getBytes()));
        EXPECT_EQ(korvane_test::kPid, region.processId());
        EXPECT_EQ(korvane_test::kHostId, region.hostId());
        EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
        EXPECT_STREQ("geo::Point::length", method.getMethodName());
        EXPECT_STREQ("/opt/app/lib/app.so", method.getModule()->getFilePath());
        EXPECT_EQ(meNotFound, method.getModule()->isBogus());
        ASSERT_TRUE(method.getSourceFile());
        EXPECT_STREQ("Point.cs", method.getSourceFile()->getSourceFileName());
        EXPECT_EQ(3u, method.getSourceFile()->getLanguageType());
        ASSERT_EQ(1u, method.getLineNumberInfo().size());
        const auto& tables = *method.getLineNumberInfo().begin();
        EXPECT_EQ(0u, tables.first.m_start);
        EXPECT_EQ(record.length, tables.first.m_length);
        EXPECT_EQ(2u, tables.second.m_nativeToSource.size());
        EXPECT_TRUE(tables.second.m_managedToSource.empty() && tables.second.m_nativeToManaged.empty());
    }
}

TEST(InlineRecordTest, TheParentIdIsTheMethodIdOfTheParentsLoadRecord) {
    const InlineRecord child = korvane_test::richInlineRecord();
    InlineRecord orphan = child;
    orphan.parentId = 0;
    InlineRecord self = child;
    self.parentId = self.methodId;
    const std::vector<Decoded> all = korvane_test::decodeAll(
        TraceWriter().loadV3(korvane_test::richLoadRecord()).inlineLoad(child).inlineLoad(orphan).inlineLoad(self));
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
        InlineRecord record = korvane_test::richInlineRecord();
        spoil(record);
        return TraceWriter().inlineLoad(record);
    };
    const auto updateWith = [](void (*spoil)(UpdateV2Record&)) {
        UpdateV2Record record = korvane_test::richUpdateRecord();
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
        for (decoding_mode_t mode : {dmFull, dmModulesOnly}) {
            SCOPED_TRACE(refusal.second + " in mode " + std::to_string(mode));
            const FakeRegionSearch search = korvane_test::foundRegion();
            LogCapture log(log4cplus::ERROR_LOG_LEVEL);
            const Decoded decoded = korvane_test::decodeLast(refusal.first, setupOf(mode, &search));
            EXPECT_FALSE(decoded.accepted);
            EXPECT_EQ(0u, decoded.method->regionCount());
            EXPECT_EQ(0, search.calls);
            EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
            EXPECT_EQ(1u, log.count(refusal.second + ", at file: "));
        }
    }
}

TEST(UpdateRecordTest, WithoutASearchTheRecordStandsAlone) {
    UpdateV2Record record = korvane_test::richUpdateRecord();
    record.code = {0xaa, 0xbb};
    const Decoded decoded = korvane_test::decodeLast(TraceWriter().updateV2(record));
    ASSERT_TRUE(decoded.accepted);
    EXPECT_EQ(0u, decoded.method->getRawMethodId());
    EXPECT_EQ(kStartJitRva, decoded.nextJitRva);
    EXPECT_EQ(record.loadTime, decoded.method->getLoadTime());
    ASSERT_EQ(1u, decoded.method->regionCount());
    const Region& region = *decoded.method->codeRegions()[0];
    EXPECT_EQ(0u, region.startJitRva());
    EXPECT_EQ(record.startAddress, region.startAddress());
    // length and codeSize go on as they stand.
    EXPECT_EQ(4u, region.length());
    EXPECT_EQ(record.code, bytesOf(region.getBytes()));
    EXPECT_STREQ("[Dynamic code]", decoded.method->getModule()->getFilePath());
    EXPECT_EQ(meSuccess, decoded.method->getModule()->isBogus());
    EXPECT_STREQ("", decoded.method->getMethodName());
    EXPECT_FALSE(decoded.method->getSourceFile());
}

TEST(UpdateRecordTest, AFoundRegionIsCopiedWithTheNewBytesAndANewJitRvaRange) {
    for (decoding_mode_t mode : {dmFull, dmModulesOnly}) {
        SCOPED_TRACE(mode);
        const FakeRegionSearch search = korvane_test::foundRegion();
        LogCapture log(log4cplus::INFO_LOG_LEVEL);
        const Decoded decoded =
            korvane_test::decodeLast(TraceWriter().updateV2(korvane_test::richUpdateRecord()), setupOf(mode, &search));
        ASSERT_TRUE(decoded.accepted);
        EXPECT_EQ(1, search.calls);
        EXPECT_EQ((std::vector<korvane_3_10::u64_t>{kRegionStart + 4, 0x6000, korvane_test::kPid, korvane_test::kHostId}),
                  search.asked);
        EXPECT_EQ(1u, log.count("Update range: 0x7f0000001004-0x7f0000001008, loadTime = 0x6000"));
        EXPECT_EQ(77u, decoded.method->getRawMethodId());
        EXPECT_EQ(kStartJitRva, decoded.method->getStartJitRva());
        EXPECT_EQ(kStartJitRva + 0x10, decoded.nextJitRva);
        ASSERT_EQ(1u, decoded.method->regionCount());
        const Region& region = *decoded.method->codeRegions()[0];
        EXPECT_EQ(kStartJitRva, region.startJitRva());
        EXPECT_EQ(0x6000u, region.loadTime());
        EXPECT_EQ(kRegionStart, region.startAddress());
        EXPECT_EQ(0x10u, region.length());
        EXPECT_EQ(codeBytes(0x10, 0), bytesOf(search.m_region->getBytes())) << "the found region keeps its bytes";
        if (mode == dmModulesOnly) {
            EXPECT_FALSE(region.getBytes());
            continue;
        }
        korvane_tracewriter::Bytes expected = codeBytes(0x10, 0);
        std::copy_n(korvane_test::richUpdateRecord().code.begin(), 4, expected.begin() + 4);
        EXPECT_EQ(expected, bytesOf(region.getBytes()));
        ASSERT_EQ(1u, region.markupRanges().size());
        EXPECT_EQ("patch", region.markupRanges().begin()->second.rangeName);
    }
}

TEST(UpdateRecordTest, TheUpdatedMethodHashesToTheFoundMethodsId) {
    FakeRegionSearch search = korvane_test::foundRegion();
    search.m_method = korvane_test::decodeLast(TraceWriter().loadV3(korvane_test::richLoadRecord())).method;
    const Decoded updated = korvane_test::decodeLast(TraceWriter().updateV2(korvane_test::richUpdateRecord()),
                                                     setupOf(dmFull, &search));
    ASSERT_TRUE(updated.accepted);
    EXPECT_EQ(search.m_method->getMethodId(), updated.method->getMethodId());
}

TEST(UpdateRecordTest, TheFoundRegionDecidesWhetherAnUpdateFits) {
    const struct {
        const char* name;
        korvane_error_t searchResult;
        korvane_3_10::address_t startAddress;
        korvane_3_10::u32_t length;
        bool accepted;
        korvane_3_10::jit_rva_t next;
        std::string message;
    } cases[] = {
        {"as long as the region", meSuccess, kRegionStart, 0x10, true, kStartJitRva + 0x10, ""},
        {"one byte longer", meSuccess, kRegionStart, 0x11, false, kStartJitRva,
         "Couldn't update the detected range (0x7f0000001000-0x7f0000001010) because it's size is small"},
        {"no region there", meNotFound, kRegionStart, 4, false, kStartJitRva, "Couldn't find a range to be updated"},
        // Only the lengths are compared; the region refuses the bytes, and the jit RVAs stay taken.
        {"starts before the region", meSuccess, kRegionStart - 1, 2, false, kStartJitRva + 0x10, ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        FakeRegionSearch search = korvane_test::foundRegion();
        search.m_result = expected.searchResult;
        UpdateV2Record record = korvane_test::richUpdateRecord();
        record.startAddress = expected.startAddress;
        record.length = expected.length;
        record.code = codeBytes(expected.length, 0x60);
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const Decoded decoded = korvane_test::decodeLast(TraceWriter().updateV2(record), setupOf(dmFull, &search));
        EXPECT_EQ(expected.accepted, decoded.accepted);
        EXPECT_EQ(expected.next, decoded.nextJitRva);
        EXPECT_TRUE(expected.message.empty() || log.count(expected.message + ", at file: ") == 1);
    }
}

} // namespace
