// Line tables of a method: storing, moving, and answering lines, counts and ranges.
#include "model_builders.h"
#include "test_support.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;
using korvane_3_10::Range;
using korvane_3_10::u32_t;

typedef std::vector<korvane_line_number_entry> Table;

const u32_t g_noIl = 0xFFFFFFFF;
const Range g_key = {0x500, 0x20};

// A method with the three tables under g_key.
JitMethod::Ptr methodWith(const Table& nativeToManaged, const Table& managedToSource, const Table& nativeToSource) {
    const JitMethod::Ptr method = makeMethod(1);
    method->addLineNumberInfo(ltNativeToManaged, nativeToManaged, g_key);
    method->addLineNumberInfo(ltManagedToSource, managedToSource, g_key);
    method->addLineNumberInfo(ltNativeToSource, nativeToSource, g_key);
    return method;
}

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
    const JitMethod::Ptr method = methodWith(location.nativeToManaged, location.managedToSource, location.nativeToSource);
    const korvane_3_10::ISourceLocation::Ptr found = method->getSourceLocation(location.rva);
    EXPECT_EQ(location.line, found ? found->getLine() : 0u);
}

INSTANTIATE_TEST_SUITE_P(Lookups, SourceLocationTest, ::testing::ValuesIn(g_locations),
                         [](const ::testing::TestParamInfo<LocationCase>& info) { return info.param.name; });

TEST(SourceLocationTest, CarriesTheSourceFile) {
    const JitMethod::Ptr method = methodWith({}, {}, {entry(0, 16, 42)});
    method->methodInfo()->m_sourceFile = korvane_3_10::SourceFile("Main.java", "c0ffee", 2, 3);
    const korvane_3_10::ISourceLocation::Ptr found = method->getSourceLocation(0x501);
    ASSERT_TRUE(found && found->getSourceFile());
    EXPECT_STREQ("Main.java", found->getSourceFile()->getSourceFileName());
    EXPECT_STREQ("c0ffee", found->getSourceFile()->getChecksum());
}

// Native to source tables under two keys, and a managed to source table under the second.
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

TEST_F(LineNumberInfoTest, CountFirstThenEntries) {
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
    EXPECT_EQ((std::vector<u32_t>{8, 16, 12}),
              (std::vector<u32_t>{entries[2].startOffset, entries[2].endOffset, entries[2].lineNumber}));
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
    korvane_line_number_entry first = {};
    EXPECT_EQ(meNotFound, m_method->getSourceRange(nullptr, &first, 0));
    EXPECT_EQ(meNotFound, m_method->getSourceRange(&first, nullptr, 0));
    EXPECT_EQ(meNotFound, m_method->getSourceRange(&first, &first, 0x900));
    EXPECT_EQ(meNotFound, makeMethod(2)->getSourceRange(&first, &first, 0));
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
    // Only lines count.
    EXPECT_EQ((std::vector<u32_t>{0, 0, 10, 0, 0, 30}),
              (std::vector<u32_t>{first.startOffset, first.endOffset, first.lineNumber, last.startOffset,
                                  last.endOffset, last.lineNumber}));
    ASSERT_EQ(meSuccess, m_method->getSourceRange(&first, &last, 0));
    EXPECT_EQ(10u, first.lineNumber);
    EXPECT_EQ(30u, last.lineNumber);
}

TEST(SourceRangeTest, LowestAndHighestLine) {
    const struct {
        const char* name;
        Table nativeToManaged;
        Table managedToSource;
        Table nativeToSource;
        korvane_error_t result;
        u32_t lowest;
        u32_t highest;
    } ranges[] = {
        {"managed wins over native", {}, {entry(0, 1, 30), entry(1, 2, 10)}, {entry(0, 4, 5)}, meSuccess, 10, 30},
        {"native when no managed", {}, {}, {entry(0, 4, 5), entry(4, 8, 3), entry(8, 9, 8)}, meSuccess, 3, 8},
        {"native to managed has no lines", {entry(0, 4, 1)}, {}, {}, meNotFound, 0, 0},
    };
    for (const auto& range : ranges) {
        SCOPED_TRACE(range.name);
        korvane_line_number_entry first = {};
        korvane_line_number_entry last = {};
        EXPECT_EQ(range.result, methodWith(range.nativeToManaged, range.managedToSource, range.nativeToSource)
                                    ->getSourceRange(&first, &last, 0));
        EXPECT_EQ(range.lowest, first.lineNumber);
        EXPECT_EQ(range.highest, last.lineNumber);
    }
}

TEST(AddLineNumberInfoTest, FirstWriterOfATableWinsAndEmptyTablesAreRefused) {
    const JitMethod::Ptr method = makeMethod(0x11, "C", "f");
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, {}, g_key));
    EXPECT_TRUE(method->getLineNumberInfo().empty());
    ASSERT_TRUE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, g_key));
    LogCapture log;
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 6)}, g_key));
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find("Couldn't overwrite existing line number info for this code region of already "
                                 "registered method (method id = 0x11, name = C::f, load time = 0), at file: "))
        << errors[0];
    // An overlapping key lands in the existing entry.
    EXPECT_TRUE(method->addLineNumberInfo(ltManagedToSource, {entry(0, 1, 7)}, Range{0x510, 0x40}));
    ASSERT_EQ(1u, method->getLineNumberInfo().size());
    EXPECT_EQ(0x20u, method->getLineNumberInfo().begin()->first.m_length);
    const JitMethod::LineInfoHolder& holder = method->getLineNumberInfo().begin()->second;
    EXPECT_EQ(5u, holder.m_nativeToSource[0].lineNumber);
    EXPECT_EQ(7u, holder.m_managedToSource[0].lineNumber);
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
}

} // namespace
