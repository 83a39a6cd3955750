// Inline placement and the inline caches, read from real traces of the profiler and of other collectors.
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

const u32_t kParent = 100;
const u32_t kOuter = 200;
const u32_t kInner = 300;

// Method "App::parent": one region 0x100 long.
LoadRecord parentAt(u64_t start, u64_t loadTime = 10, u32_t id = kParent) {
    return korvane_test::methodAt(id, start, 0x100, loadTime, "parent");
}

// Inline "App::inlined<id>", whose one line covers all of it.
InlineRecord inlineOf(u32_t id, u32_t parentId, u64_t start, u32_t length, u32_t line = 1, u64_t loadTime = 50) {
    return korvane_test::inlineAt(id, parentId, start, length, loadTime, line);
}

// A resolver over a directory of the one trace.
boost::intrusive_ptr<ISymbolResolver> read(const TraceWriter& trace) {
    korvane_test::TempDir dir;
    dir.write("h.1.jit", trace);
    return korvane_test::resolverOver({dir.str()});
}

// The region of method "App::parent" that starts at the address.
ICodeRegion::Ptr parentRegionAt(ISymbolResolver& resolver, address_t start) {
    for (auto walk = korvane_test::symbolsByName(resolver).at("App::parent")->getRegions(); !walk.at_end(); walk.next())
        if (walk.current()->getStartVirtualAddress() == start)
            return walk.current();
    return nullptr;
}

// The name and line of the inline that the region holds at the jit RVA, as "App::inlined200:42"; or "none".
std::string inlineAtRva(const ICodeRegion::Ptr& region, jit_rva_t jitRva) {
    const ISymbol::Ptr inlined = region ? region->getInlinedSymbol(jitRva) : nullptr;
    if (!inlined)
        return "none";
    const ISourceLocation::Ptr location = inlined->getSourceLocation(jitRva);
    return inlined->getMethodName() + (":" + std::to_string(location ? location->getLine() : 0));
}

// Parent, inline and an inline of the inline arrive in every order; each inline is found by jit RVA and
// answers its own line.
TEST(JitDataManagerInlineTest, ProfilerInlinesFindTheirParentsInAnyOrder) {
    const char* const waiting = "Couldn't inline method (method id = 0xc8) because parent method is not found. "
                                "Inline method is cached.";
    // P: parent at 0x1000; Q: parent's only code elsewhere; R: later parent code at 0x1000;
    // I: inline of the parent at 0x1040; N: inline of I at 0x1048.
    const struct {
        const char* order;
        const char* message;
    } cases[] = {
        {"PI", nullptr},
        {"IP", waiting},
        {"QIR",
         "Couldn't cached inline method (method id = 0xc8, ip range = 0x1040-0x1060) because parent method has not ip "
         "range suitable for insert.The cached inline method is stayed awaiting for a parent."},
        {"NIP", waiting}, {"INP", waiting}, {"PNI", nullptr}, {"PIN", nullptr}, {"NPI", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.order);
        TraceWriter trace = korvane_test::profilerTrace();
        for (const char step : std::string(c.order)) {
            if (step == 'P' || step == 'Q' || step == 'R')
                trace.loadV3(parentAt(step == 'Q' ? 0x3000 : 0x1000, step == 'R' ? 12 : 10));
            else
                trace.inlineLoad(step == 'I' ? inlineOf(kOuter, kParent, 0x1040, 0x20, 42)
                                             : inlineOf(kInner, kOuter, 0x1048, 0x8, 7));
        }
        LogCapture log;
        const auto resolver = read(trace);
        ASSERT_TRUE(resolver);
        EXPECT_TRUE(!c.message || log.contains(c.message));
        const ICodeRegion::Ptr parent = parentRegionAt(*resolver, 0x1000);
        ASSERT_TRUE(parent);
        const jit_rva_t start = parent->getStartJitRva();
        EXPECT_EQ("App::inlined200:42", inlineAtRva(parent, start + 0x45));
        // Each level takes the jit RVAs of its place in the parent's code.
        std::ostringstream placed;
        placed << std::hex << "  Set jit rva range = 0x" << start + 0x40 << "-0x" << start + 0x60
               << " for ip range = 0x1040-0x1060.";
        EXPECT_TRUE(log.contains(placed.str())) << placed.str();
        const bool nested = std::string(c.order).find('N') != std::string::npos;
        EXPECT_EQ(nested ? "App::inlined300:7" : "none",
                  inlineAtRva(parent->getInlinedCodeRegion(start + 0x4a), start + 0x4a));
    }
}

// Inlines of the profiler against a parent region at 0x1000-0x1100, in arrival order: how many are placed,
// and what the others are told.
TEST(JitDataManagerInlineTest, ProfilerInlinesMustFitTheParentAndTheirSiblings) {
    const InlineRecord outer = inlineOf(kOuter, kParent, 0x1040, 0x20);
    InlineRecord renamed = outer;
    renamed.methodName = "other";
    // Each row: the inlines, how many are placed, what stands at 0x1045 once the file is read whole, and a
    // message.
    const struct {
        const char* name;
        std::vector<InlineRecord> inlines;
        std::size_t placed;
        const char* at1045;
        const char* message;
    } cases[] = {
        {"the whole region", {inlineOf(kOuter, kParent, 0x1000, 0x100)}, 1, "App::inlined200:1", nullptr},
        {"one byte beyond the end", {inlineOf(kOuter, kParent, 0x10f0, 0x11)}, 0, "none",
         "Couldn't inline method (method id = 0xc8, ip range = 0x10f0-0x1101) because it overlaps parent's ip range "
         "0x1000-0x1100"},
        {"touching the end", {inlineOf(kOuter, kParent, 0x1100, 0x10)}, 0, "none", nullptr},
        // Of two inlines that hold a jit RVA, the first one placed answers.
        {"the same range twice", {outer, inlineOf(kOuter + 1, kParent, 0x1040, 0x20)}, 2, "App::inlined200:1",
         nullptr},
        {"a holder after its inner one",
         {inlineOf(kOuter, kParent, 0x1040, 0x10), inlineOf(kOuter + 1, kParent, 0x1040, 0x20)}, 1, nullptr,
         "because it intersects another parent's inline with range 0x1040-0x1050"},
        {"an inner one after its holder",
         {inlineOf(kOuter + 1, kParent, 0x1040, 0x20), inlineOf(kOuter, kParent, 0x1040, 0x10)}, 2,
         "App::inlined201:1", nullptr},
        {"the same id twice", {outer, inlineOf(kOuter, kParent, 0x1070, 0x10)}, 2, "App::inlined200:1",
         "Already cached inline method (method id = 0xc8)"},
        // A record read again is no second inline; another method over the same range is.
        {"the same record again", {outer, outer, renamed}, 2, "App::inlined200:1", nullptr},
        {"no id", {inlineOf(0, kParent, 0x1040, 0x20)}, 0, "none",
         "Couldn't inline method (method id = 0) because method id is invalid."},
        {"no parent id", {inlineOf(kOuter, 0, 0x1040, 0x20)}, 0, "none",
         "Couldn't inline method (method id = 0xc8) because its parent id = 0 is invalid."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TraceWriter trace = korvane_test::profilerTrace().loadV3(parentAt(0x1000));
        for (const InlineRecord& record : c.inlines)
            trace.inlineLoad(record);
        LogCapture log;
        const auto resolver = read(trace);
        ASSERT_TRUE(resolver);
        EXPECT_EQ(c.placed, log.count("Added inline method ("));
        const ICodeRegion::Ptr parent = parentRegionAt(*resolver, 0x1000);
        EXPECT_TRUE(!c.at1045 || c.at1045 == inlineAtRva(parent, parent->getStartJitRva() + 0x45));
        EXPECT_TRUE(!c.message || log.contains(c.message));
    }
}

// An inline of the profiler goes into parent code that is still there, and two inlines that name each
// other as parent don't close their regions into a ring.
TEST(JitDataManagerInlineTest, ProfilerInlinesNeedLiveParentCodeAndNoRing) {
    LogCapture log;
    const auto resolver = read(korvane_test::profilerTrace()
                                   .loadV3(parentAt(0x1000, 10))
                                   .loadV3(korvane_test::methodAt(kParent + 1, 0x1000, 0x100, 20, "other"))
                                   .loadV3(parentAt(0x2000, 30))
                                   .inlineLoad(inlineOf(kOuter, kParent, 0x1040, 0x20, 1, 40))
                                   .inlineLoad(inlineOf(kOuter + 1, kParent, 0x2040, 0x20, 2, 40)));
    ASSERT_TRUE(resolver);
    EXPECT_EQ(1u, log.count("Added inline method ("));
    const ICodeRegion::Ptr live = parentRegionAt(*resolver, 0x2000);
    EXPECT_EQ("App::inlined201:2", inlineAtRva(live, live->getStartJitRva() + 0x40));

    ASSERT_TRUE(read(korvane_test::profilerTrace()
                         .inlineLoad(inlineOf(kInner, kInner + 1, 0x5040, 0x20))
                         .inlineLoad(inlineOf(kInner + 1, kInner, 0x5040, 0x20))));
    EXPECT_TRUE(log.contains("because the parent's code region lies in it"));
}

// An inline record of another collector: "App::<name>" at the address from time 20, of line 42 unless given.
InlineRecord byAddress(const std::string& name, u64_t start, u32_t length, u32_t line = 42) {
    InlineRecord record = inlineOf(0, 0, start, length, line, 20);
    record.methodName = name;
    return record;
}

// Without the profiler an inline lies in whatever code stands at its address and goes into the deepest
// inline holding its start; read again, it is skipped. One without code below it, or crossing an inline of
// the method, is refused and ends the file.
TEST(JitDataManagerInlineTest, OtherCollectorsPlaceInlinesByAddress) {
    const InlineRecord outer = byAddress("outer", 0x1040, 0x20);
    LogCapture log;
    const auto resolver = read(TraceWriter()
                                   .magic()
                                   .loadV3(parentAt(0x1000))
                                   .inlineLoad(outer)
                                   .inlineLoad(byAddress("inner", 0x1048, 0x8, 7))
                                   .inlineLoad(byAddress("beside", 0x1050, 0x8, 8))
                                   .inlineLoad(byAddress("around", 0x1044, 0x18, 9))
                                   .inlineLoad(byAddress("after", 0x1080, 0x10, 10))
                                   .inlineLoad(byAddress("below", 0x1084, 0x8, 11))
                                   .inlineLoad(byAddress("before", 0x1010, 0x10, 12))
                                   .inlineLoad(outer));
    ASSERT_TRUE(resolver);
    const ICodeRegion::Ptr parent = parentRegionAt(*resolver, 0x1000);
    ASSERT_TRUE(parent);
    const jit_rva_t start = parent->getStartJitRva();
    EXPECT_EQ("App::outer:42", inlineAtRva(parent, start + 0x45));
    const ICodeRegion::Ptr outerRegion = parent->getInlinedCodeRegion(start + 0x45);
    // Within the outer inline the first child holding a jit RVA answers; "around" only where no other does.
    const std::pair<jit_rva_t, const char*> below[] = {
        {0x42, "none"},         {0x45, "App::around:9"}, {0x4a, "App::inner:7"},
        {0x52, "App::beside:8"}, {0x59, "App::around:9"}};
    for (const auto& b : below)
        EXPECT_EQ(b.second, inlineAtRva(outerRegion, start + b.first)) << std::hex << b.first;
    EXPECT_EQ("App::after:10", inlineAtRva(parent, start + 0x81));
    EXPECT_EQ("App::below:11", inlineAtRva(parent->getInlinedCodeRegion(start + 0x85), start + 0x85));
    EXPECT_EQ("App::before:12", inlineAtRva(parent, start + 0x10));
    EXPECT_EQ(7u, log.count("Added inline method ("));
    EXPECT_EQ(1u, log.count("Skipped an inline record that was read before (method id = 0, name = App::outer"));

    const char* const noParent = "Couldn't inline method (method id = 0) because parent method is not found.";
    const struct {
        InlineRecord refused;
        const char* message;
    } refusals[] = {
        {inlineOf(0, 0, 0x5000, 0x8, 1, 20), noParent},
        {inlineOf(0, 0, 0x1040, 0x8, 1, 5), noParent},
        {inlineOf(0, 0, 0x10f8, 0x10, 1, 20), "because it overlaps parent's ip range 0x1000-0x1100"},
        {inlineOf(0, 0, 0x1050, 0x20, 1, 20), "because it intersects another parent's inline with range 0x1040-0x1060"},
        {inlineOf(0, 0, 0x1030, 0x20, 1, 20), "because it intersects another parent's inline with range 0x1040-0x1060"},
    };
    for (const auto& r : refusals) {
        log.clear();
        EXPECT_TRUE(read(TraceWriter().magic().loadV3(parentAt(0x1000)).inlineLoad(outer).inlineLoad(r.refused)));
        EXPECT_TRUE(log.contains(r.message)) << r.message;
        EXPECT_EQ(1u, log.count("Could not read jit file "));
    }
}

} // namespace
