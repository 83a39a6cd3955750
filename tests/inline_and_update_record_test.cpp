// Inline load records and update V2 records as the decoder turns them into methods and regions.
#include "trace_decoding_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using korvane_3_10::JitFileDecoder;
using korvane_3_10::JitMethod;
using korvane_3_10::Region;
using korvane_3_10::address_t;
using korvane_3_10::jit_rva_t;
using korvane_3_10::u32_t;
using korvane_3_10::u64_t;
using korvane_test::DecoderSetup;
using korvane_test::FakeRegionSearch;
using korvane_test::foundRegion;
using korvane_test::kRegionStart;
using korvane_test::kStartJitRva;
using korvane_test::LogCapture;
using korvane_test::TraceFile;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::UpdateV2Record;

Bytes bytesOf(const Region& region) {
    if (!region.getBytes() || !region.getBytes()->data())
        return Bytes();
    const auto* data = static_cast<const std::uint8_t*>(region.getBytes()->data());
    return Bytes(data, data + region.getBytes()->size());
}

std::vector<std::string> errorsOf(const LogCapture& log) { return log.messages(log4cplus::ERROR_LOG_LEVEL); }

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

JitMethod::Ptr decodeInline(TraceFile& file, bool* accepted) {
    JitMethod::Ptr method(new JitMethod());
    *accepted = file.decoder().decodeMethodInlineLoadRecord(file.next(), method);
    return method;
}

TEST(InlineRecordTest, DecodesTheInlineWithOneRegionAndNoJitRva) {
    const InlineRecord record = korvane_test::richInlineRecord();
    TraceFile file(TraceWriter().inlineLoad(record));
    bool accepted = false;
    const JitMethod::Ptr method = decodeInline(file, &accepted);
    ASSERT_TRUE(accepted);

    EXPECT_EQ(91u, method->getRawMethodId());
    EXPECT_EQ(77u, method->getRawParentId());
    EXPECT_EQ(0u, method->getStartJitRva());
    EXPECT_EQ(0u, method->getMethodToken());
    EXPECT_EQ(record.loadTime, method->getLoadTime());
    ASSERT_EQ(1u, method->regionCount());
    const Region& region = *method->codeRegions()[0];
    EXPECT_EQ(0u, region.startJitRva());
    EXPECT_EQ(record.startAddress, region.startAddress());
    EXPECT_EQ(record.length, region.length());
    EXPECT_EQ(record.loadTime, region.loadTime());
    EXPECT_EQ(record.code, bytesOf(region));
    EXPECT_EQ(korvane_test::kPid, region.processId());
    EXPECT_EQ(korvane_test::kHostId, region.hostId());
    EXPECT_EQ(kStartJitRva, file.decoder().nextJitRva());

    EXPECT_STREQ("geo::Point::length", method->getMethodName());
    EXPECT_STREQ("/opt/app/lib/app.so", method->getModule()->getFilePath());
    EXPECT_EQ(meNotFound, method->getModule()->isBogus());
    const korvane_3_10::ISourceFile::Ptr source = method->getSourceFile();
    ASSERT_TRUE(source);
    EXPECT_STREQ("Point.cs", source->getSourceFileName());
    EXPECT_STREQ("", source->getChecksum());
    EXPECT_EQ(0u, source->getChecksumType());
    EXPECT_EQ(3u, source->getLanguageType());

    const JitMethod::LineNumberInfo& tables = method->getLineNumberInfo();
    ASSERT_EQ(1u, tables.size());
    EXPECT_EQ(0u, tables.begin()->first.m_start);
    EXPECT_EQ(record.length, tables.begin()->first.m_length);
    EXPECT_EQ(2u, tables.begin()->second.m_nativeToSource.size());
    EXPECT_TRUE(tables.begin()->second.m_managedToSource.empty());
    EXPECT_TRUE(tables.begin()->second.m_nativeToManaged.empty());
    EXPECT_FALSE(file.decoder().has32BitModule() || file.decoder().has64BitModule());
}

TEST(InlineRecordTest, TheParentIdIsTheMethodIdOfTheParentsLoadRecord) {
    InlineRecord child = korvane_test::richInlineRecord();
    InlineRecord orphan = child;
    orphan.parentId = 0;
    InlineRecord self = child;
    self.parentId = self.methodId;
    TraceFile file(TraceWriter().loadV3(korvane_test::richLoadRecord()).inlineLoad(child).inlineLoad(orphan).inlineLoad(self));
    JitMethod::Ptr parent(new JitMethod());
    ASSERT_TRUE(file.decoder().decodeMethodLoadRecordV3(file.next(), parent, nullptr));
    bool accepted = false;
    const JitMethod::Ptr inlined = decodeInline(file, &accepted);
    ASSERT_TRUE(accepted);
    EXPECT_EQ(parent->getMethodId(), inlined->getParentId());
    EXPECT_NE(inlined->getMethodId(), inlined->getParentId());

    // A parent id of 0 hashes the inline's own content: no raw id road.
    const JitMethod::Ptr withoutParent = decodeInline(file, &accepted);
    EXPECT_FALSE(withoutParent->getParentId().isEmpty());
    EXPECT_NE(parent->getMethodId(), withoutParent->getParentId());
    EXPECT_NE(withoutParent->getMethodId(), withoutParent->getParentId());

    const JitMethod::Ptr ownParent = decodeInline(file, &accepted);
    EXPECT_EQ(ownParent->getMethodId(), ownParent->getParentId());
}

struct InlineRefusal {
    const char* field;
    std::function<void(InlineRecord&)> spoil;
    std::string message;
};

TEST(InlineRecordTest, InvalidFieldsAreRefusedWithTheirValue) {
    const InlineRefusal refusals[] = {
        {"load time", [](InlineRecord& r) { r.loadTime = 0; }, "Invalid load time: 0"},
        {"range count", [](InlineRecord& r) { r.rangeCount = 2; }, "Invalid number of code regions: 0x2"},
        {"no range", [](InlineRecord& r) { r.rangeCount = 0; }, "Invalid number of code regions: 0"},
        {"start address", [](InlineRecord& r) { r.startAddress = 0; }, "Invalid start address of code range: 0"},
        {"length", [](InlineRecord& r) { r.length = 0; }, "Invalid size of code range: 0"},
        {"code size", [](InlineRecord& r) { r.code.clear(); }, "Invalid number of code range's bytes: 0"},
    };
    for (const InlineRefusal& refusal : refusals) {
        for (korvane_3_10::decoding_mode_t mode : {korvane_3_10::dmFull, korvane_3_10::dmModulesOnly}) {
            InlineRecord record = korvane_test::richInlineRecord();
            refusal.spoil(record);
            DecoderSetup setup;
            setup.mode = mode;
            TraceFile file(TraceWriter().inlineLoad(record), setup);
            LogCapture log(log4cplus::ERROR_LOG_LEVEL);
            bool accepted = true;
            const JitMethod::Ptr method = decodeInline(file, &accepted);
            EXPECT_FALSE(accepted) << refusal.field;
            EXPECT_EQ(0u, method->regionCount()) << refusal.field;
            ASSERT_EQ(1u, errorsOf(log).size()) << refusal.field;
            EXPECT_TRUE(startsWith(errorsOf(log).front(), refusal.message + ", at file: ")) << errorsOf(log).front();
        }
    }
}

TEST(InlineRecordTest, ModulesOnlyDecodesInFullWithoutBytes) {
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    TraceFile file(TraceWriter().inlineLoad(korvane_test::richInlineRecord()), setup);
    bool accepted = false;
    const JitMethod::Ptr method = decodeInline(file, &accepted);
    ASSERT_TRUE(accepted);
    EXPECT_FALSE(method->codeRegions()[0]->getBytes());
    EXPECT_STREQ("geo::Point::length", method->getMethodName());
    EXPECT_EQ(1u, method->getLineNumberInfo().size());
}

struct UpdateDecoding {
    bool accepted = false;
    JitMethod::Ptr method;
    jit_rva_t nextJitRva = 0;
};

UpdateDecoding decodeUpdate(const UpdateV2Record& record, const FakeRegionSearch* search,
                            DecoderSetup setup = DecoderSetup()) {
    TraceFile file(TraceWriter().updateV2(record), setup);
    file.decoder().setSearchCallback(search);
    UpdateDecoding decoding;
    decoding.method.reset(new JitMethod());
    decoding.accepted = file.decoder().decodeMethodUpdateRecordV2(file.next(), decoding.method);
    decoding.nextJitRva = file.decoder().nextJitRva();
    return decoding;
}

TEST(UpdateRecordTest, WithoutASearchTheRecordStandsAlone) {
    UpdateV2Record record = korvane_test::richUpdateRecord();
    record.code = {0xaa, 0xbb};
    const UpdateDecoding decoding = decodeUpdate(record, nullptr);
    ASSERT_TRUE(decoding.accepted);
    EXPECT_EQ(0u, decoding.method->getRawMethodId());
    EXPECT_EQ(kStartJitRva, decoding.nextJitRva);
    EXPECT_EQ(record.loadTime, decoding.method->getLoadTime());
    ASSERT_EQ(1u, decoding.method->regionCount());
    const Region& region = *decoding.method->codeRegions()[0];
    EXPECT_EQ(0u, region.startJitRva());
    EXPECT_EQ(record.startAddress, region.startAddress());
    // length and codeSize go on as they stand.
    EXPECT_EQ(4u, region.length());
    EXPECT_EQ(record.code, bytesOf(region));
    EXPECT_STREQ("[Dynamic code]", decoding.method->getModule()->getFilePath());
    EXPECT_EQ(meSuccess, decoding.method->getModule()->isBogus());
    EXPECT_STREQ("", decoding.method->getMethodName());
    EXPECT_FALSE(decoding.method->getSourceFile());
}

TEST(UpdateRecordTest, AFoundRegionIsCopiedWithTheNewBytesAndANewJitRvaRange) {
    const FakeRegionSearch search = foundRegion();
    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const UpdateDecoding decoding = decodeUpdate(korvane_test::richUpdateRecord(), &search);
    ASSERT_TRUE(decoding.accepted);
    EXPECT_EQ(1, search.calls);
    EXPECT_EQ(kRegionStart + 4, search.askedAddress);
    EXPECT_EQ(0x6000u, search.askedTime);
    EXPECT_EQ(korvane_test::kPid, search.askedPid);
    EXPECT_EQ(korvane_test::kHostId, search.askedHostId);
    EXPECT_EQ(1u, log.count("Update range: 0x7f0000001004-0x7f0000001008, loadTime = 0x6000"));

    EXPECT_EQ(77u, decoding.method->getRawMethodId());
    EXPECT_EQ(kStartJitRva, decoding.method->getStartJitRva());
    EXPECT_EQ(kStartJitRva + 0x10, decoding.nextJitRva);
    ASSERT_EQ(1u, decoding.method->regionCount());
    const Region& region = *decoding.method->codeRegions()[0];
    EXPECT_EQ(kStartJitRva, region.startJitRva());
    EXPECT_EQ(0x6000u, region.loadTime());
    EXPECT_EQ(kRegionStart, region.startAddress());
    EXPECT_EQ(0x10u, region.length());
    Bytes expected = korvane_test::codeBytes(0x10, 0);
    expected[4] = 0xaa;
    expected[5] = 0xbb;
    expected[6] = 0xcc;
    expected[7] = 0xdd;
    EXPECT_EQ(expected, bytesOf(region));
    EXPECT_EQ(korvane_test::codeBytes(0x10, 0), bytesOf(*search.m_region)) << "the found region keeps its bytes";
    ASSERT_EQ(1u, region.markupRanges().size());
    EXPECT_EQ("patch", region.markupRanges().begin()->second.rangeName);
}

TEST(UpdateRecordTest, TheUpdatedMethodHashesToTheFoundMethodsId) {
    FakeRegionSearch search = foundRegion();
    TraceFile file(TraceWriter().loadV3(korvane_test::richLoadRecord()).updateV2(korvane_test::richUpdateRecord()));
    file.decoder().setSearchCallback(&search);
    JitMethod::Ptr loaded(new JitMethod());
    ASSERT_TRUE(file.decoder().decodeMethodLoadRecordV3(file.next(), loaded, nullptr));
    search.m_method = loaded;
    JitMethod::Ptr updated(new JitMethod());
    ASSERT_TRUE(file.decoder().decodeMethodUpdateRecordV2(file.next(), updated));
    EXPECT_EQ(loaded->getMethodId(), updated->getMethodId());
}

TEST(UpdateRecordTest, ModulesOnlySpansTheWholeFoundRegionWithoutBytes) {
    const FakeRegionSearch search = foundRegion();
    DecoderSetup setup;
    setup.mode = korvane_3_10::dmModulesOnly;
    const UpdateDecoding decoding = decodeUpdate(korvane_test::richUpdateRecord(), &search, setup);
    ASSERT_TRUE(decoding.accepted);
    const Region& region = *decoding.method->codeRegions()[0];
    EXPECT_EQ(kRegionStart, region.startAddress());
    EXPECT_EQ(0x10u, region.length());
    EXPECT_EQ(kStartJitRva, region.startJitRva());
    EXPECT_FALSE(region.getBytes());
    EXPECT_EQ(kStartJitRva + 0x10, decoding.nextJitRva);
}

struct SearchCase {
    const char* name;
    korvane_error_t searchResult;
    address_t startAddress;
    u32_t length;
    bool accepted;
    jit_rva_t next;
    std::string message;
};

TEST(UpdateRecordTest, TheFoundRegionDecidesWhetherAnUpdateFits) {
    const SearchCase cases[] = {
        {"as long as the region", meSuccess, kRegionStart, 0x10, true, kStartJitRva + 0x10, ""},
        {"one byte longer", meSuccess, kRegionStart, 0x11, false, kStartJitRva,
         "Couldn't update the detected range (0x7f0000001000-0x7f0000001010) because it's size is small"},
        {"no region there", meNotFound, kRegionStart, 4, false, kStartJitRva, "Couldn't find a range to be updated"},
        // Only the lengths are compared; the region refuses the bytes, and the jit RVAs stay taken.
        {"starts before the region", meSuccess, kRegionStart - 1, 2, false, kStartJitRva + 0x10, ""},
    };
    for (const SearchCase& expected : cases) {
        FakeRegionSearch search = foundRegion();
        search.m_result = expected.searchResult;
        UpdateV2Record record = korvane_test::richUpdateRecord();
        record.startAddress = expected.startAddress;
        record.length = expected.length;
        record.code = korvane_test::codeBytes(expected.length, 0x60);
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const UpdateDecoding decoding = decodeUpdate(record, &search);
        EXPECT_EQ(expected.accepted, decoding.accepted) << expected.name;
        EXPECT_EQ(expected.next, decoding.nextJitRva) << expected.name;
        EXPECT_TRUE(expected.message.empty() || log.count(expected.message + ", at file: ") == 1) << expected.name;
    }
}

struct UpdateRefusal {
    const char* field;
    std::function<void(UpdateV2Record&)> spoil;
    std::string message;
};

TEST(UpdateRecordTest, InvalidFieldsAreRefusedBeforeAnySearch) {
    const UpdateRefusal refusals[] = {
        {"load time", [](UpdateV2Record& r) { r.loadTime = 0; }, "Invalid load time: 0"},
        {"start address", [](UpdateV2Record& r) { r.startAddress = 0; }, "Invalid start address of code range: 0"},
        {"length", [](UpdateV2Record& r) { r.length = 0; }, "Invalid length of code range: 0"},
        {"code size", [](UpdateV2Record& r) { r.code.clear(); }, "Invalid number of code range's bytes: 0"},
    };
    for (const UpdateRefusal& refusal : refusals) {
        const FakeRegionSearch search = foundRegion();
        UpdateV2Record record = korvane_test::richUpdateRecord();
        refusal.spoil(record);
        LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        const UpdateDecoding decoding = decodeUpdate(record, &search);
        EXPECT_FALSE(decoding.accepted) << refusal.field;
        EXPECT_EQ(0, search.calls) << refusal.field;
        EXPECT_EQ(kStartJitRva, decoding.nextJitRva) << refusal.field;
        // A payload that ends at its code size also draws the field assertion.
        EXPECT_EQ(1u, log.count(refusal.message + ", at file: ")) << refusal.field;
    }
}

} // namespace
