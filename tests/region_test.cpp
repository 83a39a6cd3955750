// Region: inline lookup, jit RVA normalisation of inline trees and the private copy.
#include "model_builders.h"
#include "test_support.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::ICodeRegion;
using korvane_3_10::jit_rva_t;
using korvane_3_10::u32_t;

const u32_t g_none = 0xFFFFFFFF;

// A parent with children at jit RVAs 0x100 (len 0x10), 0x108 (len 0x10, overlaps
// the first) and 0x200 (len 4).
class InlineLookupTest : public ::testing::TestWithParam<std::pair<jit_rva_t, u32_t>> {
protected:
    void SetUp() override {
        m_parent = makeRegion(0x7000, 0x400, 0x100);
        const jit_rva_t starts[] = {0x100, 0x108, 0x200};
        const u32_t lengths[] = {0x10, 0x10, 4};
        for (int index = 0; index < 3; ++index) {
            Region::Ptr child = makeRegion(0x7000 + starts[index] - 0x100, lengths[index], starts[index]);
            m_parent->addChildRegion(child, makeMethod(10 + index));
        }
    }
    Region::Ptr m_parent;
};

TEST_P(InlineLookupTest, FirstChildHoldingTheRvaWins) {
    const jit_rva_t rva = GetParam().first;
    const u32_t expected = GetParam().second;
    EXPECT_EQ(expected, m_parent->getInlineIndex(rva));
    if (expected == g_none) {
        EXPECT_FALSE(m_parent->getInlinedMethod(rva));
        EXPECT_FALSE(m_parent->getInlinedRegion(rva));
        EXPECT_FALSE(m_parent->getInlinedSymbol(rva));
        EXPECT_FALSE(m_parent->getInlinedCodeRegion(rva));
        return;
    }
    EXPECT_EQ(m_parent->inlinedMethods()[expected], m_parent->getInlinedMethod(rva));
    EXPECT_EQ(m_parent->inlinedRegions()[expected], m_parent->getInlinedRegion(rva));
    EXPECT_EQ(m_parent->inlinedMethods()[expected].get(), m_parent->getInlinedSymbol(rva).get());
    EXPECT_EQ(m_parent->inlinedRegions()[expected].get(), m_parent->getInlinedCodeRegion(rva).get());
}

INSTANTIATE_TEST_SUITE_P(Lookups, InlineLookupTest,
                         ::testing::Values(std::make_pair(0x0FF, g_none), // before the first child
                                           std::make_pair(0x100, 0u),     // a child's start matches
                                           std::make_pair(0x10A, 0u),     // the overlap: first added wins
                                           std::make_pair(0x10F, 0u),     // last byte of the first
                                           std::make_pair(0x110, 1u),     // only the second holds it
                                           std::make_pair(0x118, g_none), // end of the second is outside
                                           std::make_pair(0x203, 2u),     // last byte of the third
                                           std::make_pair(0x204, g_none)));

TEST(RegionTest, RegionWithoutChildrenFindsNothing) {
    Region::Ptr region = makeRegion(0x1000, 0x10, 0x500);
    EXPECT_EQ(g_none, region->getInlineIndex(0x500));
    EXPECT_FALSE(region->getInlinedSymbol(0x500));
    EXPECT_FALSE(region->getInlinedCodeRegion(0x500));
    EXPECT_TRUE(region->getInlinedRegions().at_end());
}

TEST(RegionTest, NormalisationGivesEveryLevelTheParentsDelta) {
    Region::Ptr parent = makeRegion(0x1000, 0x100, 0x500);
    Region::Ptr child = makeRegion(0x1040, 0x20);
    Region::Ptr grandchild = makeRegion(0x1048, 0x8);
    JitMethod::Ptr childMethod = makeMethod(2);
    JitMethod::Ptr grandchildMethod = makeMethod(3);
    child->addChildRegion(grandchild, grandchildMethod);
    parent->addChildRegion(child, childMethod);

    LogCapture log;
    EXPECT_EQ(meSuccess, parent->normalizeInlineJitRvaRanges(0x500, 0x1000));
    EXPECT_EQ(0x540u, child->startJitRva());
    EXPECT_EQ(0x548u, grandchild->startJitRva());
    EXPECT_EQ(0x540u, childMethod->getStartJitRva());
    EXPECT_EQ(0x548u, grandchildMethod->getStartJitRva());
    EXPECT_TRUE(log.contains("  Set jit rva range = 0x540-0x560 for ip range = 0x1040-0x1060."));
    EXPECT_TRUE(log.contains("  Set jit rva range = 0x548-0x550 for ip range = 0x1048-0x1050."));
    EXPECT_EQ(childMethod, parent->getInlinedMethod(0x545));
    EXPECT_EQ(grandchildMethod, child->getInlinedMethod(0x549));
}

TEST(RegionTest, InlineLineTablesMoveOnceOverRepeatedFinalisation) {
    Region::Ptr parent = makeRegion(0x1000, 0x100, 0x500);
    Region::Ptr child = makeRegion(0x1040, 0x20);
    JitMethod::Ptr childMethod = makeMethod(2);
    childMethod->addLineNumberInfo(ltNativeToSource, {entry(0, 0x20, 77)}, korvane_3_10::Range{0, 0x20});
    parent->addChildRegion(child, childMethod);

    parent->normalizeInlineJitRvaRanges(0x500, 0x1000);
    parent->normalizeInlineJitRvaRanges(0x500, 0x1000);

    ASSERT_EQ(1u, childMethod->getLineNumberInfo().size());
    EXPECT_EQ(0x540u, childMethod->getLineNumberInfo().begin()->first.m_start);
    ASSERT_TRUE(childMethod->getSourceLocation(0x550));
    EXPECT_EQ(77u, childMethod->getSourceLocation(0x550)->getLine());
    EXPECT_EQ(0x540u, child->startJitRva());
}

TEST(RegionTest, CopyHasOwnBytesSameMarkupAndNoInlines) {
    Region::Ptr source = makeRegion(0x1000, 4, 0x500, 7, 3);
    source->setUnloadTime(0x99);
    source->setContent(makeBuffer({1, 2, 3, 4}));
    source->addChildRegion(makeRegion(0x1001, 2), makeMethod(5));
    ASSERT_EQ(meSuccess, source->addBytesUpdate(0x1001, 2, makeBuffer({9, 9}), stCode, "patch"));

    Region::Ptr copy(new Region(*source));
    EXPECT_EQ(0x1000u, copy->startAddress());
    EXPECT_EQ(4u, copy->length());
    EXPECT_EQ(0x500u, copy->startJitRva());
    EXPECT_EQ(7u, copy->processId());
    EXPECT_EQ(3u, copy->hostId());
    EXPECT_EQ(0x10u, copy->loadTime());
    EXPECT_EQ(0x99u, copy->unloadTime());
    EXPECT_TRUE(copy->inlinedRegions().empty());
    EXPECT_TRUE(copy->inlinedMethods().empty());
    ASSERT_EQ(1u, copy->markupRanges().size());
    EXPECT_EQ("patch", copy->markupRanges().begin()->second.rangeName);
    ASSERT_TRUE(copy->getBytes());
    EXPECT_NE(source->getBytes().get(), copy->getBytes().get());
    EXPECT_EQ(bytesOf(source->getBytes()), bytesOf(copy->getBytes()));

    ASSERT_EQ(meSuccess, copy->addBytesUpdate(0x1000, 1, makeBuffer({0x55}), stCode, ""));
    EXPECT_EQ((std::vector<unsigned char>{1, 9, 9, 4}), bytesOf(source->getBytes()));
}

TEST(RegionTest, CopyOfRegionWithoutBytesHasNone) {
    Region::Ptr source = makeRegion(0x1000, 4, 0x500);
    Region copy(*source);
    EXPECT_FALSE(copy.getBytes());
}

} // namespace
