// Region: inline lookup, jit RVA normalisation of inline trees, the private copy, and byte updates.
#include "model_builders.h"
#include "test_support.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::jit_rva_t;
using korvane_3_10::u32_t;

typedef std::vector<unsigned char> Bytes;

TEST(RegionTest, FirstChildHoldingTheRvaWins) {
    // Children at jit RVAs 0x100 (0x10 long), 0x108 (0x10 long, over the first one's tail) and 0x200 (4 long).
    const Region::Ptr parent = makeRegion(0x7000, 0x400, 0x100);
    for (const jit_rva_t start : {0x100u, 0x108u, 0x200u})
        parent->addChildRegion(makeRegion(0x6F00 + start, start == 0x200 ? 4 : 0x10, start), makeMethod(start));
    const u32_t none = 0xFFFFFFFF;
    const std::pair<jit_rva_t, u32_t> lookups[] = {{0x0FF, none}, {0x100, 0},    {0x10A, 0}, {0x10F, 0},
                                                   {0x110, 1},    {0x118, none}, {0x203, 2}, {0x204, none}};
    for (const auto& lookup : lookups) {
        SCOPED_TRACE(lookup.first);
        const bool found = lookup.second != none;
        EXPECT_EQ(lookup.second, parent->getInlineIndex(lookup.first));
        EXPECT_EQ(found ? parent->inlinedMethods()[lookup.second].get() : nullptr,
                  parent->getInlinedSymbol(lookup.first).get());
        EXPECT_EQ(found ? parent->inlinedRegions()[lookup.second].get() : nullptr,
                  parent->getInlinedCodeRegion(lookup.first).get());
    }
    EXPECT_EQ(none, makeRegion(0x1000, 0x10, 0x500)->getInlineIndex(0x500));
}

TEST(RegionTest, NormalisationGivesEveryLevelTheParentsDeltaAndMovesLineTablesOnce) {
    const Region::Ptr parent = makeRegion(0x1000, 0x100, 0x500);
    const Region::Ptr child = makeRegion(0x1040, 0x20);
    const Region::Ptr grandchild = makeRegion(0x1048, 0x8);
    const JitMethod::Ptr childMethod = makeMethod(2);
    const JitMethod::Ptr grandchildMethod = makeMethod(3);
    childMethod->addLineNumberInfo(ltNativeToSource, {entry(0, 0x20, 77)}, korvane_3_10::Range{0, 0x20});
    child->addChildRegion(grandchild, grandchildMethod);
    parent->addChildRegion(child, childMethod);
    LogCapture log;
    EXPECT_EQ(meSuccess, parent->normalizeInlineJitRvaRanges(0x500, 0x1000));
    EXPECT_TRUE(log.contains("  Set jit rva range = 0x540-0x560 for ip range = 0x1040-0x1060."));
    EXPECT_TRUE(log.contains("  Set jit rva range = 0x548-0x550 for ip range = 0x1048-0x1050."));
    parent->normalizeInlineJitRvaRanges(0x500, 0x1000);
    EXPECT_EQ(0x540u, child->startJitRva());
    EXPECT_EQ(0x548u, grandchild->startJitRva());
    EXPECT_EQ(0x540u, childMethod->getStartJitRva());
    EXPECT_EQ(0x548u, grandchildMethod->getStartJitRva());
    EXPECT_EQ(grandchildMethod, child->getInlinedMethod(0x549));
    ASSERT_EQ(1u, childMethod->getLineNumberInfo().size());
    EXPECT_EQ(0x540u, childMethod->getLineNumberInfo().begin()->first.m_start);
    ASSERT_TRUE(childMethod->getSourceLocation(0x550));
    EXPECT_EQ(77u, childMethod->getSourceLocation(0x550)->getLine());
}

TEST(RegionTest, CopyHasOwnBytesSameMarkupAndNoInlines) {
    const Region::Ptr source = makeRegion(0x1000, 4, 0x500, 7, 3);
    source->setUnloadTime(0x99);
    source->setContent(makeBuffer({1, 2, 3, 4}));
    source->addChildRegion(makeRegion(0x1001, 2), makeMethod(5));
    ASSERT_EQ(meSuccess, source->addBytesUpdate(0x1001, 2, makeBuffer({9, 9}), stCode, "patch"));
    const Region::Ptr copy(new Region(*source));
    EXPECT_EQ((std::vector<korvane_3_10::u64_t>{0x1000, 4, 0x500, 7, 3, 0x10, 0x99}),
              (std::vector<korvane_3_10::u64_t>{copy->startAddress(), copy->length(), copy->startJitRva(),
                                                copy->processId(), copy->hostId(), copy->loadTime(),
                                                copy->unloadTime()}));
    EXPECT_TRUE(copy->inlinedRegions().empty() && copy->inlinedMethods().empty());
    ASSERT_EQ(1u, copy->markupRanges().size());
    EXPECT_EQ("patch", copy->markupRanges().begin()->second.rangeName);
    EXPECT_EQ(bytesOf(source->getBytes()), bytesOf(copy->getBytes()));
    ASSERT_EQ(meSuccess, copy->addBytesUpdate(0x1000, 1, makeBuffer({0x55}), stCode, ""));
    EXPECT_EQ((Bytes{1, 9, 9, 4}), bytesOf(source->getBytes()));
    EXPECT_FALSE(Region(*makeRegion(0x1000, 4, 0x500)).getBytes());
}

struct Step {
    korvane_3_10::u64_t address;
    u32_t length;
    Bytes bytes; // empty: no buffer at all
    u32_t segType;
    korvane_error_t result;
};

struct UpdateCase {
    const char* name;
    std::vector<Step> steps;
    Bytes image;         // the bytes after all steps
    std::string message; // somewhere in the log, if not empty
};

const Bytes g_original = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes g_patch = {0xAA, 0xBB, 0xCC, 0xDD};
const Bytes g_other = {0x11, 0x22, 0x33, 0x44};
const Bytes g_nops = {0x90, 0x90, 0x90, 0x90};

Bytes withBytesAt(Bytes image, std::size_t offset, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<long>(offset));
    return image;
}

const UpdateCase g_updates[] = {
    {"CodeInTheMiddle", {{0x1004, 4, g_patch, stCode, meSuccess}}, withBytesAt(g_original, 4, g_patch),
     "Updated code region (ip range = 0x1000-0x2010 successfully"},
    {"DataFillsWithNoOperations", {{0x1004, 4, g_patch, stData, meSuccess}}, withBytesAt(g_original, 4, g_nops), ""},
    {"CodeAtTheHead", {{0x1000, 4, g_patch, stCode, meSuccess}}, withBytesAt(g_original, 0, g_patch), ""},
    {"CodeAtTheTail", {{0x100C, 4, g_patch, stCode, meSuccess}}, withBytesAt(g_original, 12, g_patch), ""},
    {"WholeRegionFromShortSourceZeroesTheTail", {{0x1000, 16, g_patch, stCode, meSuccess}},
     withBytesAt(Bytes(16, 0), 0, g_patch), ""},
    {"PastTheEnd", {{0x100C, 8, Bytes(8, 1), stCode, meNotFound}}, g_original,
     "Couldn't accept update (ip range = 0x100c-0x1014) because it overlaps parent's ip range 0x1000-0x1010, at file: "},
    {"BeforeTheStart", {{0x0FFF, 2, Bytes(2, 1), stCode, meNotFound}}, g_original, ""},
    {"PartialOverlapOfMarkup", {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1006, 4, g_other, stCode, meNotFound}},
     withBytesAt(g_original, 4, g_patch),
     "Couldn't accept update (ip range = 0x1006-0x100a) because it overlaps an existing markup range 0x1004-0x1008 "
     "with segType = 0x1"},
    {"AdjacentRanges", {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1008, 4, g_other, stCode, meSuccess}},
     withBytesAt(withBytesAt(g_original, 4, g_patch), 8, g_other), ""},
    {"CodeThenDataFillsAndTellsTheChange",
     {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1004, 4, g_other, stData, meSuccess}},
     withBytesAt(g_original, 4, g_nops), "Changed a type of markup range (ip range = 0x1004-0x1008) from 0x1  to 0x2"},
    {"DataThenCodeThenKeepStillFills",
     {{0x1004, 4, g_patch, stData, meSuccess}, {0x1004, 4, g_other, stCode, meSuccess},
      {0x1004, 4, g_patch, stKeep, meSuccess}},
     withBytesAt(g_original, 4, g_nops), ""},
    {"KeepOnNewRangeUsesTheBytesTwice",
     {{0x1004, 4, g_patch, stKeep, meSuccess}, {0x1004, 4, g_other, stKeep, meSuccess}},
     withBytesAt(g_original, 4, g_other), ""},
    {"SecondCodeUpdateWins", {{0x1004, 4, g_patch, stCode, meSuccess}, {0x1004, 4, g_other, stCode, meSuccess}},
     withBytesAt(g_original, 4, g_other), ""},
    {"NullAddress", {{0, 4, g_patch, stCode, meNotFound}}, g_original,
     "Couldn't update because the input range is invalid: codeAddr = 0, codeLen = 0x4"},
    {"ZeroLength", {{0x1004, 0, g_patch, stCode, meNotFound}}, g_original, ""},
    {"NoBuffer", {{0x1004, 4, Bytes(), stCode, meNotFound}}, g_original,
     "Couldn't update because the input content is empty"},
    {"BadAddressIsToldBeforeMissingBuffer", {{0, 4, Bytes(), stCode, meNotFound}}, g_original,
     "Couldn't update because the input range is invalid:"},
    {"UnknownSegmentType", {{0x1004, 4, g_patch, 4, meNotFound}}, g_original,
     "Couldn't update because the input segment type =0x4 is not recognized"},
    {"SegmentTypeZero", {{0x1004, 4, g_patch, 0, meNotFound}}, g_original, ""},
};

class AddBytesUpdateTest : public ::testing::TestWithParam<UpdateCase> {};

TEST_P(AddBytesUpdateTest, ImageAndLog) {
    const Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    region->setContent(makeBuffer(g_original));
    const korvane_3_10::IByteBuffer* buffer = region->getBytes().get();
    LogCapture log;
    for (const Step& step : GetParam().steps) {
        const auto bytes = step.bytes.empty() ? boost::shared_ptr<korvane_3_10::IByteBuffer>() : makeBuffer(step.bytes);
        EXPECT_EQ(step.result, region->addBytesUpdate(step.address, step.length, bytes,
                                                      static_cast<korvane_segment_type_t>(step.segType), "r"));
    }
    EXPECT_EQ(buffer, region->getBytes().get());
    EXPECT_EQ(GetParam().image, bytesOf(region->getBytes()));
    EXPECT_TRUE(GetParam().message.empty() || log.contains(GetParam().message)) << GetParam().message;
}

INSTANTIATE_TEST_SUITE_P(Updates, AddBytesUpdateTest, ::testing::ValuesIn(g_updates),
                         [](const ::testing::TestParamInfo<UpdateCase>& info) { return info.param.name; });

TEST(AddBytesUpdateTest, MarkupKeepsTheTypeAndNameItFirstHeld) {
    const Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    region->setContent(makeBuffer(g_original));
    region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stData, "first");
    region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stCode, "second");
    ASSERT_EQ(1u, region->markupRanges().size());
    EXPECT_EQ(stData, region->markupRanges().begin()->second.segType);
    EXPECT_EQ("first", region->markupRanges().begin()->second.rangeName);
}

TEST(AddBytesUpdateTest, RegionWithoutBytesIsReportedAndRefused) {
    const Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    LogCapture log;
    EXPECT_EQ(meNotFound, region->addBytesUpdate(0x1004, 4, makeBuffer(g_patch), stCode, ""));
    EXPECT_TRUE(log.contains("Assertion failed: m_content"));
    EXPECT_FALSE(region->getBytes());
}

} // namespace
