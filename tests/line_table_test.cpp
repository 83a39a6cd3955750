// Line tables of a method: storing, moving, and answering lines, counts and ranges.
#include "model_builders.h"
#include "test_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::Range;
using korvane_3_10::SourceFile;
using korvane_3_10::u32_t;

typedef std::vector<korvane_line_number_entry> Table;

const u32_t g_noIl = 0xFFFFFFFF;
const Range g_key = {0x500, 0x20};

struct LocationCase {
    const char* name;
    Table nativeToManaged;
    Table managedToSource;
    Table nativeToSource;
    korvane_3_10::jit_rva_t rva;
    u32_t line; // 0: no location
};

const LocationCase g_locations[] = {
    {"GapBetweenEntries", {}, {}, {entry(0, 4, 10), entry(8, 12, 20)}, 0x506, 0},
    {"OverlapFirstWins", {}, {}, {entry(0, 8, 10), entry(4, 12, 20)}, 0x505, 10},
    {"OneStepEmptyEntryMatchesItsStart", {}, {}, {entry(6, 6, 30)}, 0x506, 30},
    {"OneStepEndIsOutside", {}, {}, {entry(0, 4, 10)}, 0x504, 0},
    {"TwoSteps", {entry(0, 8, 2), entry(8, 16, 5)}, {entry(0, 4, 100), entry(4, 8, 200)}, {}, 0x509, 200},
    {"NoIlPosition", {entry(0, 16, g_noIl)}, {entry(0, 4, 100)}, {entry(0, 16, 7)}, 0x504, 0},
    {"TwoStepsDoNotFallBack", {entry(0, 4, 1)}, {entry(0, 4, 100)}, {entry(0, 16, 7)}, 0x508, 0},
    {"NativeToManagedAlone", {entry(0, 16, 1)}, {}, {}, 0x504, 0},
    {"NativeToManagedWithoutManagedUsesOneStep", {entry(0, 16, 1)}, {}, {entry(0, 16, 7)}, 0x504, 7},
    {"ManagedToSourceAloneUsesOneStep", {}, {entry(0, 16, 1)}, {}, 0x504, 0},
    {"EmptyNativeToManagedEntryNeverMatches", {entry(6, 6, 1)}, {entry(1, 2, 100)}, {}, 0x506, 0},
    {"EmptyManagedToSourceEntryMatchesItsStart", {entry(0, 16, 3)}, {entry(3, 3, 55)}, {}, 0x504, 55},
    {"BeforeTheKey", {}, {}, {entry(0, 4, 10)}, 0x4FF, 0},
    {"PastTheKey", {}, {}, {entry(0, 0x40, 10)}, 0x520, 0},
};

class SourceLocationTest : public ::testing::TestWithParam<LocationCase> {};

TEST_P(SourceLocationTest, Line) {
    const LocationCase& location = GetParam();
    const JitMethod::Ptr method = makeMethod(1);
    method->addLineNumberInfo(ltNativeToManaged, location.nativeToManaged, g_key);
    method->addLineNumberInfo(ltManagedToSource, location.managedToSource, g_key);
    method->addLineNumberInfo(ltNativeToSource, location.nativeToSource, g_key);
    const korvane_3_10::ISourceLocation::Ptr found = method->getSourceLocation(location.rva);
    if (location.line == 0) {
        EXPECT_FALSE(found);
        return;
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(location.line, found->getLine());
}

INSTANTIATE_TEST_SUITE_P(Lookups, SourceLocationTest, ::testing::ValuesIn(g_locations),
                         [](const ::testing::TestParamInfo<LocationCase>& info) { return info.param.name; });

TEST(SourceLocationTest, CarriesACopyOfTheSourceFile) {
    const JitMethod::Ptr method = makeMethod(1);
    method->methodInfo()->m_sourceFile = SourceFile("Main.java", "c0ffee", 2, 3);
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 16, 42)}, g_key);
    const korvane_3_10::ISourceLocation::Ptr found = method->getSourceLocation(0x501);
    ASSERT_TRUE(found && found->getSourceFile());
    EXPECT_STREQ("Main.java", found->getSourceFile()->getSourceFileName());
    EXPECT_STREQ("c0ffee", found->getSourceFile()->getChecksum());
    EXPECT_EQ(2u, found->getSourceFile()->getChecksumType());
    EXPECT_EQ(3u, found->getSourceFile()->getLanguageType());
}

class LineNumberInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_method = makeMethod(1);
        m_method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 10), entry(4, 8, 11), entry(8, 16, 12)},
                                    Range{0x500, 0x10});
        m_method->addLineNumberInfo(ltNativeToSource, {entry(0, 16, 90)}, Range{0x600, 0x10});
        m_method->addLineNumberInfo(ltManagedToSource, {entry(0, 1, 30), entry(1, 2, 10)}, Range{0x600, 0x10});
    }
    JitMethod::Ptr m_method;
};

TEST_F(LineNumberInfoTest, TwoCallProtocol) {
    u32_t count = 0;
    ASSERT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0));
    ASSERT_EQ(3u, count);
    korvane_line_number_entry entries[5] = {};
    count = 2;
    EXPECT_EQ(meBufferTooSmall, m_method->getLineNumberInfo(ltNativeToSource, entries, &count, 0x500));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(0u, entries[0].lineNumber);
    count = 5;
    EXPECT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, entries, &count, 0x50F));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(8u, entries[2].startOffset);
    EXPECT_EQ(16u, entries[2].endOffset);
    EXPECT_EQ(12u, entries[2].lineNumber);
}

TEST_F(LineNumberInfoTest, Refusals) {
    u32_t count = 7;
    korvane_line_number_entry entries[3] = {};
    EXPECT_EQ(meInvalidArgument, m_method->getLineNumberInfo(ltNativeToSource, nullptr, nullptr, 0));
    EXPECT_EQ(meInvalidArgument, m_method->getLineNumberInfo(ltNativeToSource, entries, nullptr, 0));
    EXPECT_EQ(meNotFound, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0x700));
    EXPECT_EQ(meNotFound, m_method->getLineNumberInfo(static_cast<korvane_line_info_type>(3), nullptr, &count, 0x500));
    EXPECT_EQ(meNotFound, makeMethod(2)->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0));
    EXPECT_EQ(7u, count);
}

TEST_F(LineNumberInfoTest, AskingALaterRangeOverwritesTheFirstEntry) {
    u32_t count = 0;
    ASSERT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0x605));
    EXPECT_EQ(1u, count);
    ASSERT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0));
    EXPECT_EQ(1u, count);
    // The first key now answers with the tables of the second.
    ASSERT_TRUE(m_method->getSourceLocation(0x501));
    EXPECT_EQ(90u, m_method->getSourceLocation(0x501)->getLine());
    EXPECT_EQ(0x500u, m_method->getLineNumberInfo().begin()->first.m_start);
}

TEST_F(LineNumberInfoTest, SourceRangeOverwritesTheFirstEntryToo) {
    korvane_line_number_entry first = {1, 1, 1};
    korvane_line_number_entry last = {1, 1, 1};
    ASSERT_EQ(meSuccess, m_method->getSourceRange(&first, &last, 0x600));
    // The managed table wins over the native one, and only lines count.
    EXPECT_EQ(0u, first.startOffset);
    EXPECT_EQ(0u, first.endOffset);
    EXPECT_EQ(10u, first.lineNumber);
    EXPECT_EQ(0u, last.startOffset);
    EXPECT_EQ(30u, last.lineNumber);
    ASSERT_EQ(meSuccess, m_method->getSourceRange(&first, &last, 0));
    EXPECT_EQ(10u, first.lineNumber);
    EXPECT_EQ(30u, last.lineNumber);
}

struct RangeCase {
    const char* name;
    Table nativeToManaged;
    Table managedToSource;
    Table nativeToSource;
    korvane_error_t result;
    u32_t lowest;
    u32_t highest;
};

const RangeCase g_ranges[] = {
    {"ManagedWinsOverNative", {}, {entry(0, 1, 30), entry(1, 2, 10)}, {entry(0, 4, 5)}, meSuccess, 10, 30},
    {"NativeWhenNoManaged", {}, {}, {entry(0, 4, 5), entry(4, 8, 3), entry(8, 9, 8)}, meSuccess, 3, 8},
    {"OneEntryTwice", {}, {entry(0, 1, 44)}, {}, meSuccess, 44, 44},
    {"NativeToManagedHasNoLines", {entry(0, 4, 1)}, {}, {}, meNotFound, 0, 0},
};

class SourceRangeTest : public ::testing::TestWithParam<RangeCase> {};

TEST_P(SourceRangeTest, LowestAndHighest) {
    const RangeCase& range = GetParam();
    const JitMethod::Ptr method = makeMethod(1);
    method->addLineNumberInfo(ltNativeToManaged, range.nativeToManaged, g_key);
    method->addLineNumberInfo(ltManagedToSource, range.managedToSource, g_key);
    method->addLineNumberInfo(ltNativeToSource, range.nativeToSource, g_key);
    korvane_line_number_entry first = {};
    korvane_line_number_entry last = {};
    EXPECT_EQ(range.result, method->getSourceRange(&first, &last, 0));
    EXPECT_EQ(range.lowest, first.lineNumber);
    EXPECT_EQ(range.highest, last.lineNumber);
}

INSTANTIATE_TEST_SUITE_P(Ranges, SourceRangeTest, ::testing::ValuesIn(g_ranges),
                         [](const ::testing::TestParamInfo<RangeCase>& info) { return info.param.name; });

TEST(SourceRangeTest, Refusals) {
    const JitMethod::Ptr method = makeMethod(1);
    korvane_line_number_entry first = {};
    EXPECT_EQ(meNotFound, method->getSourceRange(&first, &first, 0));
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, g_key);
    EXPECT_EQ(meNotFound, method->getSourceRange(nullptr, &first, 0));
    EXPECT_EQ(meNotFound, method->getSourceRange(&first, nullptr, 0));
    EXPECT_EQ(meNotFound, method->getSourceRange(&first, &first, 0x900));
}

TEST(AddLineNumberInfoTest, EmptyTableIsRefused) {
    const JitMethod::Ptr method = makeMethod(1);
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, {}, g_key));
    EXPECT_TRUE(method->getLineNumberInfo().empty());
}

TEST(AddLineNumberInfoTest, FirstWriterOfATableWins) {
    const JitMethod::Ptr method = makeMethod(0x11, "C", "f");
    ASSERT_TRUE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, g_key));
    LogCapture log;
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 6)}, g_key));
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find("Couldn't overwrite existing line number info for this code region of already "
                                 "registered method (method id = 0x11, name = C::f, load time = 0), at file: "))
        << errors[0];
    EXPECT_TRUE(method->addLineNumberInfo(ltManagedToSource, {entry(0, 1, 7)}, g_key));
    ASSERT_EQ(1u, method->getLineNumberInfo().size());
    const JitMethod::LineInfoHolder& holder = method->getLineNumberInfo().begin()->second;
    EXPECT_EQ(5u, holder.m_nativeToSource[0].lineNumber);
    EXPECT_EQ(7u, holder.m_managedToSource[0].lineNumber);
}

TEST(AddLineNumberInfoTest, OverlappingRangeLandsInTheExistingEntry) {
    const JitMethod::Ptr method = makeMethod(1);
    method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, Range{0x500, 0x20});
    EXPECT_TRUE(method->addLineNumberInfo(ltNativeToManaged, {entry(0, 4, 1)}, Range{0x510, 0x40}));
    ASSERT_EQ(1u, method->getLineNumberInfo().size());
    EXPECT_EQ(0x20u, method->getLineNumberInfo().begin()->first.m_length);
    EXPECT_EQ(1u, method->getLineNumberInfo().begin()->second.m_nativeToManaged.size());
}

TEST(AddLineNumberInfoTest, MergeOfAnotherMethodsTables) {
    const JitMethod::Ptr registered = makeMethod(1);
    registered->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, Range{0x500, 0x10});
    const JitMethod::Ptr incoming = makeMethod(1);
    incoming->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 6)}, Range{0x600, 0x10});
    incoming->addLineNumberInfo(ltManagedToSource, {entry(0, 1, 7)}, Range{0x500, 0x10});
    EXPECT_TRUE(registered->addLineNumberInfo(incoming->getLineNumberInfo()));
    ASSERT_EQ(2u, registered->getLineNumberInfo().size());
    EXPECT_EQ(1u, registered->getLineNumberInfo().begin()->second.m_managedToSource.size());
    EXPECT_TRUE(registered->addLineNumberInfo(JitMethod::LineNumberInfo()));
}

TEST(NormalizeLineNumberInfoTest, KeysMoveByTheRvaAndOffsetsStay) {
    const JitMethod::Ptr method = makeMethod(1);
    method->addLineNumberInfo(ltNativeToSource, {entry(0x10, 0x14, 9)}, Range{0, 0x40});
    method->normalizeLineNumberInfoJitRvaRanges(0x500);
    ASSERT_EQ(1u, method->getLineNumberInfo().size());
    EXPECT_EQ(0x500u, method->getLineNumberInfo().begin()->first.m_start);
    EXPECT_EQ(0x40u, method->getLineNumberInfo().begin()->first.m_length);
    ASSERT_TRUE(method->getSourceLocation(0x510));
    EXPECT_EQ(9u, method->getSourceLocation(0x510)->getLine());
    // A second call adds again.
    method->normalizeLineNumberInfoJitRvaRanges(0x500);
    EXPECT_EQ(0xA00u, method->getLineNumberInfo().begin()->first.m_start);
}

} // namespace
