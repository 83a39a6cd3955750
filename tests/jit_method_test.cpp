// The method model: names and id hashes of JitMethod; byte updates of Region; and the line
// tables of a method.
#include "jitreader/md5_hash_generator.h"
#include "model_builders.h"
#include "test_support.h"
#include "trace_builder.h"

#include <log4cplus/loglevel.h>

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace korvane_test;
using korvane_3_10::jit_rva_t;
using korvane_3_10::Range;
using korvane_3_10::u32_t;
typedef std::vector<unsigned char> Bytes;
typedef std::vector<korvane_line_number_entry> Table;

const u32_t kNone = 0xFFFFFFFF;

// Names as a trace gives them: the class first, then the method; dots split the parts, colons join them.
TEST(JitMethodTest, ClassFirstThenMethodWithDotsSplitAndColonsJoined) {
    const char* const names[][5] = {
        // class, method: the class, method and qualified names
        {"A.B", "m(x.Y, int)", "A::B", "A::B::m", "A::B::m(x::Y, int)"},
        {"", "free", "", "free", "free"},
        {"..a..b.", "", "a::b", "", ""},
        {"...", "f", "", "f", "f"},
        {"A", "..", "A", "A::", "A::"},
        {"", "f(a.b...)", "", "f", "f(a::b::)"},
        {"A(x", "m", "A(x", "A", "A(x::m"},
    };
    korvane_tracewriter::TraceWriter trace = profilerTrace();
    for (u32_t i = 0; i < sizeof names / sizeof names[0]; ++i) {
        korvane_tracewriter::LoadRecord record = methodAt(i + 1, 0x1000 + 0x100 * i, 0x40, 10, "m");
        record.className = names[i][0];
        record.methodName = names[i][1];
        trace.loadV3(record);
    }
    TempDir dir;
    dir.write("h.1.jit", trace);
    const auto resolver = resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    auto walk = resolver->getSymbols();
    for (const auto& name : names) {
        ASSERT_FALSE(walk.at_end());
        EXPECT_STREQ(name[2], walk.current()->getClassName()) << name[0] << " " << name[1];
        EXPECT_STREQ(name[3], walk.current()->getMethodName()) << name[0] << " " << name[1];
        EXPECT_STREQ(name[4], walk.current()->getQualifiedMethodName()) << name[0] << " " << name[1];
        walk.next();
    }
}

JitMethod::Ptr methodIn(u32_t hostId, u32_t processId, korvane_arch arch, bool withRegion = true) {
    const JitMethod::Ptr method = methodOf(7).named("A", "f(int)");
    method->methodInfo()->m_methodToken = 100;
    method->methodInfo()->m_module = korvane_3_10::Module::Ptr(new korvane_3_10::Module("/x/y.so", meNotFound, arch));
    if (withRegion)
        method->addCodeRegion(regionAt(0x1000, 0x10).rva(0x500).in(processId, hostId));
    return method;
}

// A raw id stands with the host, the process and the architecture; without one, the names and the module do.
TEST(MethodIdHashTest, TextsAndTheirDigests) {
    const struct {
        u32_t rawId;
        JitMethod::Ptr method;
        std::string text;
    } cases[] = {
        {1234, methodIn(1, 5678, arch_xa64), "1234.1.56781"},
        {1234, methodIn(2, 5679, arch_xa32), "1234.2.56790"},
        {1234, methodIn(0, 0, arch_xa64, false), "1234.0.01"},
        {0, methodIn(1, 5678, arch_xa32), "100A::f(int)A/x/y.so0"},
        {0, methodIn(9, 9, arch_xa64), "100A::f(int)A/x/y.so1"},
    };
    const korvane_3_10::Md5HashGenerator generator;
    for (const auto& hash : cases)
        EXPECT_EQ(hash.text, generator.hashText(hash.rawId, hash.method));
    // The digest of the text, bytes 0..7 and 8..15 read big-endian.
    typedef korvane_3_10::BaseMethodId Id;
    EXPECT_EQ((Id{0xdc27968aca26c86eull, 0x5da23faea1a3ffe2ull}), generator.getHashValue(1234, cases[0].method));
    EXPECT_EQ((Id{0xdf95e5198a52da12ull, 0x5476614f02e8134aull}), generator.getHashValue(0, cases[3].method));
}

// The bytes an image pattern stands for: '.' the byte as it was (its offset), 'P' or 'O' the bytes of
// that update buffer, 'N' a no-operation, '0' zero.
Bytes imageOf(const std::string& pattern) {
    const std::map<char, Bytes> buffers = {
        {'P', {0xAA, 0xBB, 0xCC, 0xDD}}, {'O', {0x11, 0x22, 0x33, 0x44}}, {'N', Bytes(4, 0x90)}, {'0', Bytes(4, 0)}};
    Bytes image;
    std::size_t runStart = 0;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (i == 0 || pattern[i] != pattern[i - 1])
            runStart = i;
        image.push_back(pattern[i] == '.' ? static_cast<unsigned char>(i) : buffers.at(pattern[i])[(i - runStart) % 4]);
    }
    return image;
}

// An update of the region at 0x1000..0x1010 with buffer 'P' or 'O', or with none (' ').
struct Update {
    korvane_3_10::u64_t address;
    u32_t length;
    char buffer;
    u32_t segType;
    korvane_error_t result;
};

TEST(RegionTest, BytesUpdatesFoldIntoTheImage) {
    const struct {
        std::vector<Update> steps;
        std::string image;
        std::string message; // somewhere in the log, if not empty
    } cases[] = {
        {{{0x1004, 4, 'P', stCode, meSuccess}}, "....PPPP........",
         "Updated code region (ip range = 0x1000-0x2010 successfully"},
        {{{0x1004, 4, 'P', stData, meSuccess}}, "....NNNN........", ""},
        {{{0x1000, 4, 'P', stCode, meSuccess}}, "PPPP............", ""},
        {{{0x100C, 4, 'P', stCode, meSuccess}}, "............PPPP", ""},
        {{{0x1000, 16, 'P', stCode, meSuccess}}, "PPPP000000000000", ""},
        {{{0x100C, 8, 'P', stCode, meNotFound}}, "................",
         "Couldn't accept update (ip range = 0x100c-0x1014) because it overlaps parent's ip range 0x1000-0x1010, at "
         "file: "},
        {{{0x0FFF, 2, 'P', stCode, meNotFound}}, "................", ""},
        {{{0x1004, 4, 'P', stCode, meSuccess}, {0x1006, 4, 'O', stCode, meNotFound}}, "....PPPP........",
         "Couldn't accept update (ip range = 0x1006-0x100a) because it overlaps an existing markup range "
         "0x1004-0x1008 with segType = 0x1"},
        {{{0x1004, 4, 'P', stCode, meSuccess}, {0x1008, 4, 'O', stCode, meSuccess}}, "....PPPPOOOO....", ""},
        {{{0x1004, 4, 'P', stCode, meSuccess}, {0x1004, 4, 'O', stCode, meSuccess}}, "....OOOO........", ""},
        {{{0x1004, 4, 'P', stCode, meSuccess}, {0x1004, 4, 'O', stData, meSuccess}}, "....NNNN........",
         "Changed a type of markup range (ip range = 0x1004-0x1008) from 0x1  to 0x2"},
        {{{0x1004, 4, 'P', stData, meSuccess}, {0x1004, 4, 'O', stCode, meSuccess},
          {0x1004, 4, 'P', stKeep, meSuccess}},
         "....NNNN........", ""},
        {{{0x1004, 4, 'P', stKeep, meSuccess}, {0x1004, 4, 'O', stKeep, meSuccess}}, "....OOOO........", ""},
        {{{0, 4, 'P', stCode, meNotFound}}, "................",
         "Couldn't update because the input range is invalid: codeAddr = 0, codeLen = 0x4"},
        {{{0x1004, 0, 'P', stCode, meNotFound}}, "................", ""},
        {{{0x1004, 4, ' ', stCode, meNotFound}}, "................",
         "Couldn't update because the input content is empty"},
        {{{0x1004, 4, 'P', 4, meNotFound}}, "................",
         "Couldn't update because the input segment type =0x4 is not recognized"},
        {{{0x1004, 4, 'P', 0, meNotFound}}, "................", ""},
    };
    for (std::size_t index = 0; index < sizeof cases / sizeof cases[0]; ++index) {
        SCOPED_TRACE("case " + std::to_string(index));
        const Region::Ptr region = regionAt(0x1000, 0x10).rva(0x500);
        region->setContent(bufferOf(imageOf("................")));
        const korvane_3_10::IByteBuffer* buffer = region->getBytes().get();
        LogCapture log;
        for (const Update& step : cases[index].steps) {
            const auto bytes = step.buffer == ' ' ? boost::shared_ptr<korvane_3_10::IByteBuffer>()
                                                  : bufferOf(imageOf(std::string(4, step.buffer)));
            EXPECT_EQ(step.result, region->addBytesUpdate(step.address, step.length, bytes,
                                                          static_cast<korvane_segment_type_t>(step.segType), "r"));
        }
        EXPECT_EQ(buffer, region->getBytes().get());
        EXPECT_EQ(imageOf(cases[index].image), bytesOf(region->getBytes()));
        EXPECT_TRUE(cases[index].message.empty() || log.contains(cases[index].message)) << cases[index].message;
    }
}

TEST(RegionTest, MarkupKeepsTheTypeAndNameItFirstHeld) {
    const Region::Ptr region = regionAt(0x1000, 0x10).rva(0x500);
    region->setContent(bufferOf(imageOf("................")));
    region->addBytesUpdate(0x1004, 4, bufferOf(imageOf("PPPP")), stData, "first");
    region->addBytesUpdate(0x1004, 4, bufferOf(imageOf("PPPP")), stCode, "second");
    ASSERT_EQ(1u, region->markupRanges().size());
    EXPECT_EQ(stData, region->markupRanges().begin()->second.segType);
    EXPECT_EQ("first", region->markupRanges().begin()->second.rangeName);
    // A region without bytes refuses an update and reports it.
    const Region::Ptr empty = regionAt(0x1000, 0x10).rva(0x500);
    LogCapture log;
    EXPECT_EQ(meNotFound, empty->addBytesUpdate(0x1004, 4, bufferOf(imageOf("PPPP")), stCode, ""));
    EXPECT_TRUE(log.contains("Assertion failed: m_content"));
    EXPECT_FALSE(empty->getBytes());
}

// A method with the three tables under one key.
JitMethod::Ptr methodWith(const Table& nativeToManaged, const Table& managedToSource, const Table& nativeToSource,
                          const Range& key = Range{0x500, 0x20}) {
    const JitMethod::Ptr method = methodOf(1);
    method->addLineNumberInfo(ltNativeToManaged, nativeToManaged, key);
    method->addLineNumberInfo(ltManagedToSource, managedToSource, key);
    method->addLineNumberInfo(ltNativeToSource, nativeToSource, key);
    return method;
}

TEST(LineTableTest, SourceLocationInOneStepOrTwo) {
    const struct {
        const char* name;
        Table nativeToManaged, managedToSource, nativeToSource;
        jit_rva_t rva;
        u32_t line; // 0: no location
    } cases[] = {
        {"gap between entries", {}, {}, {entry(0, 4, 10), entry(8, 12, 20)}, 0x506, 0},
        {"overlap: first wins", {}, {}, {entry(0, 8, 10), entry(4, 12, 20)}, 0x505, 10},
        {"one step: an empty entry matches its start", {}, {}, {entry(6, 6, 30)}, 0x506, 30},
        {"one step: the end is outside", {}, {}, {entry(0, 4, 10)}, 0x504, 0},
        {"two steps", {entry(0, 8, 2), entry(8, 16, 5)}, {entry(0, 4, 100), entry(4, 8, 200)}, {}, 0x509, 200},
        {"no IL position", {entry(0, 16, kNone)}, {entry(0, 4, 100)}, {entry(0, 16, 7)}, 0x504, 0},
        {"two steps do not fall back", {entry(0, 4, 1)}, {entry(0, 4, 100)}, {entry(0, 16, 7)}, 0x508, 0},
        {"native to managed alone uses one step", {entry(0, 16, 1)}, {}, {entry(0, 16, 7)}, 0x504, 7},
        {"managed to source alone uses one step", {}, {entry(0, 16, 1)}, {}, 0x504, 0},
        {"empty native to managed entry never matches", {entry(6, 6, 1)}, {entry(1, 2, 100)}, {}, 0x506, 0},
        {"empty managed to source entry matches its start", {entry(0, 16, 3)}, {entry(3, 3, 55)}, {}, 0x504, 55},
        {"before the key", {}, {}, {entry(0, 4, 10)}, 0x4FF, 0},
        {"past the key", {}, {}, {entry(0, 0x40, 10)}, 0x520, 0},
    };
    for (const auto& location : cases) {
        const korvane_3_10::ISourceLocation::Ptr found =
            methodWith(location.nativeToManaged, location.managedToSource, location.nativeToSource)
                ->getSourceLocation(location.rva);
        EXPECT_EQ(location.line, found ? found->getLine() : 0u) << location.name;
    }
}

TEST(LineTableTest, LowestAndHighestLine) {
    const struct {
        Table nativeToManaged, managedToSource, nativeToSource;
        korvane_error_t result;
        u32_t lowest, highest;
    } cases[] = {
        {{}, {entry(0, 1, 30), entry(1, 2, 10)}, {entry(0, 4, 5)}, meSuccess, 10, 30}, // managed wins
        {{}, {}, {entry(0, 4, 5), entry(4, 8, 3), entry(8, 9, 8)}, meSuccess, 3, 8},
        {{entry(0, 4, 1)}, {}, {}, meNotFound, 0, 0}, // native to managed has no lines
    };
    for (const auto& range : cases) {
        korvane_line_number_entry first = {};
        korvane_line_number_entry last = {};
        const JitMethod::Ptr method = methodWith(range.nativeToManaged, range.managedToSource, range.nativeToSource);
        EXPECT_EQ(range.result, method->getSourceRange(&first, &last, 0));
        EXPECT_EQ(range.lowest, first.lineNumber);
        EXPECT_EQ(range.highest, last.lineNumber);
        EXPECT_EQ(meNotFound, method->getSourceRange(nullptr, &last, 0));
        EXPECT_EQ(meNotFound, method->getSourceRange(&first, nullptr, 0));
        EXPECT_EQ(meNotFound, method->getSourceRange(&first, &last, 0x900));
    }
}

// Native to source tables under two keys, and a managed to source table under the second.
class LineNumberInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_method = methodWith({}, {}, {entry(0, 4, 10), entry(4, 8, 11), entry(8, 16, 12)}, Range{0x500, 0x10});
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
    count = 7;
    EXPECT_EQ(meInvalidArgument, m_method->getLineNumberInfo(ltNativeToSource, nullptr, nullptr, 0));
    EXPECT_EQ(meInvalidArgument, m_method->getLineNumberInfo(ltNativeToSource, entries, nullptr, 0));
    EXPECT_EQ(meNotFound, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0x700));
    EXPECT_EQ(meNotFound, m_method->getLineNumberInfo(static_cast<korvane_line_info_type>(3), nullptr, &count, 0x500));
    EXPECT_EQ(meNotFound, methodOf(2).build()->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0));
    EXPECT_EQ(7u, count);
}

// Asking for a later key writes its tables over the first entry, which then answers with them.
TEST_F(LineNumberInfoTest, AskingALaterKeyOverwritesTheFirstEntry) {
    u32_t count = 0;
    ASSERT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0x605));
    ASSERT_EQ(meSuccess, m_method->getLineNumberInfo(ltNativeToSource, nullptr, &count, 0));
    EXPECT_EQ(1u, count);
    ASSERT_TRUE(m_method->getSourceLocation(0x501));
    EXPECT_EQ(90u, m_method->getSourceLocation(0x501)->getLine());
    EXPECT_EQ(0x500u, m_method->getLineNumberInfo().begin()->first.m_start);
}

TEST(LineTableTest, FirstWriterOfATableWinsAndEmptyTablesAreRefused) {
    const JitMethod::Ptr method = methodOf(0x11).named("C", "f");
    const Range key = {0x500, 0x20};
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, std::vector<korvane_line_number_entry>(), key));
    EXPECT_TRUE(method->getLineNumberInfo().empty());
    ASSERT_TRUE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 5)}, key));
    LogCapture log;
    EXPECT_FALSE(method->addLineNumberInfo(ltNativeToSource, {entry(0, 4, 6)}, key));
    const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find("Couldn't overwrite existing line number info for this code region of already "
                                 "registered method (method id = 0x11, name = C::f, load time = 0), at file: "))
        << errors[0];
    // An overlapping key lands in the existing entry.
    EXPECT_TRUE(method->addLineNumberInfo(ltManagedToSource, {entry(0, 1, 7)}, Range{0x510, 0x40}));
    ASSERT_EQ(1u, method->getLineNumberInfo().size());
    EXPECT_EQ(0x20u, method->getLineNumberInfo().begin()->first.m_length);
    const JitMethod::LineInfoHolder holder = method->getLineNumberInfo().begin()->second;
    EXPECT_EQ(5u, holder.nativeToSource()[0].lineNumber);
    EXPECT_EQ(7u, holder.managedToSource()[0].lineNumber);
}

// One method loaded again and again, in no order of address, each load with two-step tables of its
// own size: every load still finds its own lines, also after a query copied one load's tables over
// the first key's.
TEST(LineTableTest, ManyLoadsOfOneMethodKeepTheirOwnLines) {
    const u32_t loads = 40;
    const auto sizeOf = [](u32_t load) { return load % 19 + 1; };
    const auto addressOf = [](u32_t load) { return 0x10000 + 0x100 * ((load * 17) % 40); };
    korvane_tracewriter::TraceWriter trace = profilerTrace();
    for (u32_t load = 0; load < loads; ++load) {
        korvane_tracewriter::LoadRecord record = methodAt(1, addressOf(load), 0x40, 10 + load, "again");
        record.nativeToSource.clear();
        for (u32_t i = 0; i < sizeOf(load); ++i) {
            record.nativeToManaged.push_back({2 * i, 2 * i + 2, i});
            record.managedToSource.push_back({i, i + 1, 1000 * load + i});
        }
        trace.loadV3(record);
    }
    TempDir dir;
    dir.write("h.1.jit", trace);
    const auto resolver = resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    std::map<korvane_3_10::address_t, jit_rva_t> rvaAt;
    for (auto symbols = resolver->getSymbols(); !symbols.at_end(); symbols.next())
        for (auto regions = symbols.current()->getRegions(); !regions.at_end(); regions.next())
            rvaAt[regions.current()->getStartVirtualAddress()] = regions.current()->getStartJitRva();
    ASSERT_EQ(loads, rvaAt.size());
    const auto expectOwnLines = [&](u32_t load) {
        const jit_rva_t start = rvaAt[addressOf(load)];
        const auto symbol = resolver->getSymbol(start);
        ASSERT_TRUE(symbol);
        for (u32_t i = 0; i < sizeOf(load); ++i) {
            const auto location = symbol->getSourceLocation(start + 2 * i + 1);
            ASSERT_TRUE(location) << "load " << load << " entry " << i;
            EXPECT_EQ(1000 * load + i, location->getLine()) << "load " << load << " entry " << i;
        }
    };
    for (u32_t load = 0; load < loads; ++load)
        expectOwnLines(load);

    const u32_t asked = 7;
    const auto symbol = resolver->getSymbol(rvaAt[addressOf(asked)]);
    u32_t count = 0;
    ASSERT_EQ(meSuccess, symbol->getLineNumberInfo(ltManagedToSource, nullptr, &count, rvaAt[addressOf(asked)]));
    ASSERT_EQ(meSuccess, symbol->getLineNumberInfo(ltManagedToSource, nullptr, &count, 0));
    ASSERT_EQ(sizeOf(asked), count);
    std::vector<korvane_line_number_entry> entries(count);
    ASSERT_EQ(meSuccess, symbol->getLineNumberInfo(ltManagedToSource, entries.data(), &count, 0));
    EXPECT_EQ(1000 * asked + count - 1, entries.back().lineNumber);
    const korvane_3_10::address_t firstKey = rvaAt.begin()->first;
    for (u32_t load = 0; load < loads; ++load)
        if (addressOf(load) != firstKey)
            expectOwnLines(load);
}

} // namespace
