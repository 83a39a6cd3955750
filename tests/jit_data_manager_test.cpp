// Loading, splitting and point queries of the data manager, fed with hand-built records.
#include "model_builders.h"
#include "test_support.h"

#include "jitreader/jit_trace_format.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace korvane_3_10;
using korvane_test::kHost;
using korvane_test::kPid;
using korvane_test::LogCapture;
using korvane_test::methodOf;
using korvane_test::regionAt;

const jit_rva_t kNoJitRva = ~jit_rva_t(0);

// A data manager with the questions the tests ask it.
struct Store : korvane_test::Store {
    // The address pieces as samples at the times see them, in hex: "start-end:load times" for each run of
    // 0x80-byte cells that answer with the same code at every time.
    std::string pieces(const std::vector<u64_t>& tscs = {0x15, 0x25}) const {
        std::ostringstream text;
        std::string run;
        u64_t runStart = 0;
        for (u64_t cell = 0x800; cell <= 0x2800; cell += 0x80) {
            const std::string times = timesAt(cell, tscs);
            EXPECT_EQ(times, timesAt(cell + 0x7f, tscs)) << std::hex << cell;
            if (times == run)
                continue;
            if (!run.empty())
                text << (text.tellp() > 0 ? " " : "") << std::hex << runStart << "-" << cell << ":" << run;
            run = times;
            runStart = cell;
        }
        return text.str();
    }

    // The load times of the code that samples at the address find at the times, each numbered from its own
    // region's start.
    std::string timesAt(u64_t address, const std::vector<u64_t>& tscs) const {
        std::ostringstream times;
        for (const u64_t tsc : tscs) {
            jit_rva_t jitRva = 0;
            const JitMethod::Ptr method = sample(address, tsc, jitRva);
            if (!method)
                continue;
            const Region& region = *method->codeRegions().front();
            EXPECT_EQ(address - region.startAddress() + region.startJitRva(), jitRva) << std::hex << address;
            times << (times.tellp() > 0 ? "," : "") << std::hex << method->getLoadTime();
        }
        return times.str();
    }

    // The method and jit RVA of a sample, or a null method.
    JitMethod::Ptr sample(u64_t address, u64_t tsc, jit_rva_t& jitRva) const {
        JitMethod::Ptr method;
        jitRva = 0;
        const korvane_error_t result = manager.resolveJitPoint(address, tsc, kPid, kHost, method, jitRva);
        EXPECT_TRUE(result == meSuccess || !method);
        return method;
    }
};

class JitDataManagerTest : public ::testing::Test, protected Store {};

// New code loaded at 0x20 over old code of 0x10 (and 0x11): every way its ends can fall against the old
// code, and the samples each piece answers before and after; old code overwritten anywhere is gone everywhere.
TEST_F(JitDataManagerTest, NewCodeOverOldCodeSplitsTheAddressPieces) {
    struct Case {
        const char* name;
        std::vector<std::pair<u64_t, u32_t>> old; // start and length
        u64_t start;
        u32_t length;
        const char* pieces;
    };
    const std::vector<std::pair<u64_t, u32_t>> one = {{0x1000, 0x1000}};
    const std::vector<std::pair<u64_t, u32_t>> two = {{0x1000, 0x100}, {0x1200, 0x100}};
    const std::vector<Case> cases = {
        {"same range", one, 0x1000, 0x1000, "1000-2000:10,20"},
        {"same start, ends before", one, 0x1000, 0x800, "1000-1800:10,20 1800-2000:10"},
        {"same start, ends after", one, 0x1000, 0x1400, "1000-2000:10,20 2000-2400:20"},
        {"starts inside, same end", one, 0x1400, 0xc00, "1000-1400:10 1400-2000:10,20"},
        {"inside", one, 0x1400, 0x400, "1000-1400:10 1400-1800:10,20 1800-2000:10"},
        {"starts inside, ends after", one, 0x1400, 0x1000, "1000-1400:10 1400-2000:10,20 2000-2400:20"},
        {"starts before, same end", one, 0xc00, 0x1400, "c00-1000:20 1000-2000:10,20"},
        {"starts before, ends inside", one, 0xc00, 0xc00, "c00-1000:20 1000-1800:10,20 1800-2000:10"},
        {"covers it", one, 0xc00, 0x1800, "c00-1000:20 1000-2000:10,20 2000-2400:20"},
        {"over two keys and the gap", two, 0x1080, 0x200,
         "1000-1080:10 1080-1100:10,20 1100-1200:20 1200-1280:11,20 1280-1300:11"},
        {"over two keys, beyond both ends", two, 0xf00, 0x500,
         "f00-1000:20 1000-1100:10,20 1100-1200:20 1200-1300:11,20 1300-1400:20"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Store store;
        std::vector<JitMethod::Ptr> oldMethods;
        for (u32_t i = 0; i < c.old.size(); ++i)
            oldMethods.push_back(store.loadCode(i + 1, c.old[i].first, c.old[i].second, 0x100000 * (i + 1), 0x10 + i));
        const JitMethod::Ptr newMethod = store.loadCode(99, c.start, c.length, 0x900000, 0x20);
        ASSERT_EQ(c.pieces, store.pieces());
        for (const JitMethod::Ptr& old : oldMethods)
            EXPECT_EQ(0x20u, old->codeRegions().front()->unloadTime());
        EXPECT_EQ(0u, newMethod->codeRegions().front()->unloadTime());

    }
}

TEST_F(JitDataManagerTest, RefusedRegionsReportAndKeepWhatWasDone) {
    LogCapture log;
    loadCode(1, 0x1000, 0x100, 0x100, 10);
    const JitMethod::Ptr sameTime = methodOf(2).loaded(10).with({regionAt(0x1080, 0x100).rva(0x500).loaded(10)});
    EXPECT_EQ(meMalformedRecord, load(sameTime));
    EXPECT_TRUE(log.contains("Couldn't add a splitted region (ip range = 0x1080-0x1180, loadTime=0xa) in the "
                             "single time domain"));
    JitMethod::Ptr kept;
    EXPECT_EQ(meSuccess, manager.resolveJitPoint(0x500, kept));
    EXPECT_EQ(sameTime, kept);
    EXPECT_EQ("1000-1100:a", pieces({0x15}));

    EXPECT_EQ(meMalformedRecord, load(methodOf(3).loaded(30).with({regionAt(0x8000, 0x10).rva(0x150).loaded(30)})));
    EXPECT_TRUE(log.contains("Couldn't add a region (addr=0x8000, size=0x10, methodID=0x3, jitRva=0x150) because "
                             "jit rva ranges are overlapped."));
    EXPECT_EQ(meMalformedRecord, load(methodOf(4).loaded(30).with({regionAt(0xfffffffffffffff0ull, 0x20).rva(0x9000).loaded(30)})));
}

TEST_F(JitDataManagerTest, RepeatedMethodIdsMergeIntoTheFirstArrival) {
    manager.setCollectorType(ctJitProfiler);
    const JitMethod::Ptr other = loadCode(2, 0x5000, 0x100, 0x5000, 10);
    const JitMethod::Ptr first = loadCode(1, 0x1000, 0x100, 0x100, 10);
    loadCode(1, 0x2000, 0x100, 0x500, 5);
    EXPECT_EQ(5u, first->getLoadTime());
    loadCode(1, 0x3000, 0x100, 0x900, 30);
    EXPECT_EQ(5u, first->getLoadTime());
    // The latest record's start counts, not the lowest ever seen.
    EXPECT_EQ(0x900u, first->getStartJitRva());
    EXPECT_EQ(3u, first->regionCount());
    // Inlines of the id go into the first arrival.
    EXPECT_EQ(meSuccess, loadInline(methodOf(50).parent(1).loaded(40).with({regionAt(0x3010, 0x10).loaded(40)})));
    EXPECT_EQ(1u, first->codeRegions().back()->inlinedRegions().size());

    std::vector<ISymbol::Ptr> listed;
    for (auto walk = manager.getJitMethods(); !walk.at_end(); walk.next())
        listed.push_back(walk.current());
    EXPECT_EQ(std::vector<ISymbol::Ptr>({other, first}), listed);
    JitMethod::Ptr found;
    ASSERT_EQ(meSuccess, manager.resolveJitPoint(0x950, found));
    EXPECT_EQ(first, found);
    jit_rva_t jitRva = 0;
    EXPECT_EQ(first, sample(0x2010, 6, jitRva));
    EXPECT_EQ(0x510u, jitRva);
    address_t address = 0;
    EXPECT_EQ(meSuccess, first->getVirtualAddress(0x910, &address));
    EXPECT_EQ(0x3010u, address);
}

TEST_F(JitDataManagerTest, SecondPreJittedCopyOfTheSameCodeIsDropped) {
    LogCapture log;
    const JitMethod::Ptr method = loadCode(1, 0x1000, 0x100, 0x100, 1);
    EXPECT_EQ(meSuccess, load(methodOf(1).loaded(1).with({regionAt(0x1000, 0x100).rva(0x900).loaded(1)})));
    EXPECT_EQ(1u, log.count("because there are two pre-jitted code ranges                         located on the "
                            "same address space for the same method"));
    EXPECT_EQ(1u, method->regionCount());
    JitMethod::Ptr found;
    EXPECT_EQ(meNotFound, manager.resolveJitPoint(0x900, found));
    // Pre-jitted code elsewhere, or code of another time at the same place, is kept.
    EXPECT_EQ(meSuccess, load(methodOf(1).loaded(1).with({regionAt(0x3000, 0x100).rva(0xa00).loaded(1)})));
    EXPECT_EQ(meSuccess, load(methodOf(1).loaded(2).with({regionAt(0x1000, 0x100).rva(0xb00).loaded(2)})));
    EXPECT_EQ(3u, method->regionCount());
}

// Method 1 at 0x1000 lives from 5 to 9, when method 2 replaces it, and method 6, read late, from 7; method
// 3 sits right behind; method 4 at 0x2000 was partly overwritten by method 5 at 9.
TEST_F(JitDataManagerTest, SamplesResolveByAddressAndTime) {
    const JitMethod::Ptr m1 = loadCode(1, 0x1000, 0x100, 0x100, 5);
    const JitMethod::Ptr m2 = loadCode(2, 0x1000, 0x100, 0x200, 9);
    const JitMethod::Ptr m3 = loadCode(3, 0x1100, 0x100, 0x300, 5);
    const JitMethod::Ptr m4 = loadCode(4, 0x2000, 0x100, 0x400, 5);
    loadCode(5, 0x2080, 0x80, 0x500, 9);
    const JitMethod::Ptr m6 = loadCode(6, 0x1000, 0x100, 0x600, 7);
    struct Case {
        u64_t address;
        u64_t tsc;
        JitMethod::Ptr method;
        jit_rva_t jitRva;
        const char* message;
    };
    const std::vector<Case> cases = {
        {0x1000, 4, nullptr, 0, "Couldn't find a region domain by tsc = 0x4"},
        {0x1000, 5, m1, 0x100, nullptr},
        {0x10ff, 6, m1, 0x1ff, nullptr},
        {0x10ff, 8, m6, 0x6ff, nullptr},
        {0x1000, 9, m2, 0x200, nullptr},
        {0x0fff, 100, nullptr, 0, "Couldn't find a region for addr = 0xfff"},
        {0x1100, 100, m3, 0x300, nullptr},
        {0x11ff, 100, m3, 0x3ff, nullptr},
        {0x1200, 100, nullptr, 0, "Couldn't find a region for addr = 0x1200"},
        {0x2000, 8, m4, 0x400, nullptr},
        {0x2000, 9, nullptr, 0,
         "The found range (0x2000-0x2100) with life time (0x5-0x9) was out of memory when a sample with tsc = 0x9 "
         "occurred"},
        {0x2000, ~0ull, nullptr, 0, "was out of memory"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.address << " at " << c.tsc);
        LogCapture log;
        jit_rva_t jitRva = 0;
        EXPECT_EQ(c.method, sample(c.address, c.tsc, jitRva));
        EXPECT_EQ(c.jitRva, jitRva);
        EXPECT_TRUE(!c.message || (log.contains(c.message) && log.contains("to any known ip address range.")));
    }
    LogCapture log;
    JitMethod::Ptr method;
    jit_rva_t jitRva = 0;
    EXPECT_EQ(meNotFound, manager.resolveJitPoint(0x1000, 100, kPid + 1, kHost, method, jitRva));
    EXPECT_EQ(meNotFound, manager.resolveJitPoint(0x1000, 100, kPid, kHost + 1, method, jitRva));
    EXPECT_EQ(2u, log.count("Couldn't find a region domain for pid = "));
}

TEST_F(JitDataManagerTest, JitRvasResolveToTheirTopLevelMethod) {
    const JitMethod::Ptr m1 = loadCode(1, 0x1000, 0x100, 0x100, 5);
    const JitMethod::Ptr m2 = loadCode(2, 0x3000, 0x10, 0x200, 5);
    const JitMethod::Ptr m3 = loadCode(3, 0x4000, 0x10, 0x210, 5);
    const std::vector<std::pair<jit_rva_t, JitMethod::Ptr>> cases = {
        {0x100, m1}, {0x1ff, m1}, {0x200, m2}, {0x20f, m2}, {0x210, m3}, {0x220, nullptr}, {0, nullptr},
        {kNoJitRva - 1, nullptr}, {kNoJitRva, nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.first);
        JitMethod::Ptr method;
        EXPECT_EQ(c.second ? meSuccess : meNotFound, manager.resolveJitPoint(c.first, method));
        EXPECT_EQ(c.second, method);
    }
    LogCapture log;
    JitMethod::Ptr method;
    manager.resolveJitPoint(0, method);
    manager.resolveJitPoint(kNoJitRva, method);
    EXPECT_TRUE(log.contains("Couldn't resolve jit rva = 0 because it is out of the jit rva domain."));
    EXPECT_TRUE(log.contains("Couldn't resolve jit rva = 0xffffffffffffffff because it is invalid."));
}

} // namespace
