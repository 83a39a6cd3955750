// Inline placement and the inline caches of the data manager, fed with hand-built records.
#include "model_builders.h"
#include "test_support.h"

#include "jitreader/jit_trace_format.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::methodOf;
using korvane_test::regionAt;

const u32_t kParent = 100;
const u32_t kOuter = 200;
const u32_t kInner = 300;

// A data manager of the given collector; parents are methods of one region 0x100 long.
struct InlineStore : korvane_test::Store {
    explicit InlineStore(u32_t collectorType) : korvane_test::Store(collectorType) {}
    JitMethod::Ptr loadParent(u64_t start, jit_rva_t jitRva, u64_t loadTime = 10, u32_t id = kParent) {
        return loadCode(id, start, 0x100, jitRva, loadTime);
    }
};

// An inline record's method: one region without jit RVA.
JitMethod::Ptr makeInline(u32_t rawId, u32_t rawParentId, u64_t start, u32_t length, u64_t loadTime = 50) {
    return methodOf(rawId).parent(rawParentId).loaded(loadTime).with({regionAt(start, length).loaded(loadTime)});
}

JitMethod::Ptr withLine(const JitMethod::Ptr& method, u32_t line) {
    method->addLineNumberInfo(ltNativeToSource, {{0, method->codeRegions().front()->length(), line}},
                              Range{0, method->codeRegions().front()->length()});
    return method;
}

u32_t lineAt(const JitMethod::Ptr& method, jit_rva_t jitRva) {
    const ISourceLocation::Ptr location = method->getSourceLocation(jitRva);
    return location ? location->getLine() : 0;
}

// Parent, inline and an inline of the inline arrive in every order; after
// finalisation each is found by jit RVA and answers its own line, also after
// a second finalisation.
TEST(JitDataManagerInlineTest, ProfilerInlinesFindTheirParentsInAnyOrder) {
    struct Case {
        const char* order;
        jit_rva_t parentJitRva;
        const char* message;
    };
    const char* const waiting = "Couldn't inline method (method id = 0xc8) because parent method is not found. "
                                "Inline method is cached.";
    // P: parent at 0x1000; Q: parent's only code elsewhere; R: later parent code at 0x1000;
    // I: inline of the parent at 0x1040; N: inline of I at 0x1048.
    const std::vector<Case> cases = {
        {"PI", 0x100, nullptr},
        {"IP", 0x100, waiting},
        {"QIR", 0x400,
         "Couldn't cached inline method (method id = 0xc8, ip range = 0x1040-0x1060) because parent method has not ip "
         "range suitable for insert.The cached inline method is stayed awaiting for a parent."},
        {"NIP", 0x100, waiting}, {"INP", 0x100, waiting}, {"PNI", 0x100, nullptr}, {"PIN", 0x100, nullptr},
        {"NPI", 0x100, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.order);
        LogCapture log;
        InlineStore store(ctJitProfiler);
        const JitMethod::Ptr outer = withLine(makeInline(kOuter, kParent, 0x1040, 0x20), 42);
        const JitMethod::Ptr inner = withLine(makeInline(kInner, kOuter, 0x1048, 0x8), 7);
        const bool nested = std::string(c.order).find('N') != std::string::npos;
        JitMethod::Ptr parent;
        for (const char step : std::string(c.order)) {
            if (step == 'P')
                parent = store.loadParent(0x1000, 0x100);
            else if (step == 'Q')
                parent = store.loadParent(0x3000, 0x300);
            else if (step == 'R')
                store.loadParent(0x1000, 0x400, 12);
            else
                EXPECT_EQ(meSuccess, store.loadInline(step == 'I' ? outer : inner));
        }
        EXPECT_TRUE(!c.message || log.contains(c.message));
        for (int round = 0; round < 2; ++round) {
            store.manager.finalize();
            const Region::Ptr& parentRegion = parent->codeRegions().back();
            ASSERT_EQ(c.parentJitRva, parentRegion->startJitRva());
            EXPECT_TRUE(outer->attachedToParent());
            EXPECT_EQ(c.parentJitRva + 0x40, outer->codeRegions().front()->startJitRva());
            EXPECT_EQ(ISymbol::Ptr(outer), parentRegion->getInlinedSymbol(c.parentJitRva + 0x45));
            EXPECT_EQ(42u, lineAt(outer, c.parentJitRva + 0x45));
            if (!nested)
                continue;
            EXPECT_TRUE(inner->attachedToParent());
            EXPECT_EQ(c.parentJitRva + 0x48, inner->codeRegions().front()->startJitRva());
            EXPECT_EQ(ISymbol::Ptr(inner), outer->codeRegions().front()->getInlinedSymbol(c.parentJitRva + 0x4a));
            EXPECT_EQ(7u, lineAt(inner, c.parentJitRva + 0x4a));
        }
    }
}

// Inlines against a parent region at 0x1000-0x1100, in arrival order.
TEST(JitDataManagerInlineTest, ProfilerInlinesMustFitTheParentAndTheirSiblings) {
    struct Arrival {
        u32_t id;
        u64_t start;
        u32_t length;
        bool attached;
    };
    struct Case {
        const char* name;
        std::vector<Arrival> inlines;
        const char* message;
    };
    const std::vector<Case> cases = {
        {"the whole region", {{200, 0x1000, 0x100, true}}, nullptr},
        {"one byte beyond the end", {{200, 0x10f0, 0x11, false}},
         "Couldn't inline method (method id = 0xc8, ip range = 0x10f0-0x1101) because it overlaps parent's ip range "
         "0x1000-0x1100"},
        {"touching the end", {{200, 0x1100, 0x10, false}}, nullptr},
        {"the same range twice", {{200, 0x1040, 0x20, true}, {201, 0x1040, 0x20, true}}, nullptr},
        {"a holder after its inner one", {{200, 0x1040, 0x10, true}, {201, 0x1040, 0x20, false}},
         "because it intersects another parent's inline with range 0x1040-0x1050"},
        {"an inner one after its holder", {{201, 0x1040, 0x20, true}, {200, 0x1040, 0x10, true}}, nullptr},
        {"the same id twice", {{200, 0x1040, 0x20, true}, {200, 0x1070, 0x10, true}},
         "Already cached inline method (method id = 0xc8)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        InlineStore store(ctJitProfiler);
        const JitMethod::Ptr parent = store.loadParent(0x1000, 0x100);
        std::size_t attached = 0;
        for (const Arrival& arrival : c.inlines) {
            const JitMethod::Ptr method = makeInline(arrival.id, kParent, arrival.start, arrival.length);
            EXPECT_EQ(arrival.attached ? meSuccess : meNotFound, store.loadInline(method));
            EXPECT_EQ(arrival.attached, method->attachedToParent());
            attached += arrival.attached ? 1 : 0;
        }
        EXPECT_EQ(attached, parent->codeRegions().front()->inlinedRegions().size());
        EXPECT_TRUE(!c.message || log.contains(c.message));
    }
}

// A file read again after a failure brings its inline records once more.
TEST(JitDataManagerInlineTest, InlineRecordsReadAgainAreNotPlacedTwice) {
    for (const u32_t collectorType : {0u, static_cast<u32_t>(ctJitProfiler)}) {
        SCOPED_TRACE(collectorType);
        InlineStore store(collectorType);
        const JitMethod::Ptr parent = store.loadParent(0x1000, 0x100);
        const u32_t id = collectorType == ctJitProfiler ? kOuter : 0;
        const u32_t parentId = collectorType == ctJitProfiler ? kParent : 0;
        EXPECT_EQ(meSuccess, store.loadInline(makeInline(id, parentId, 0x1040, 0x20)));
        EXPECT_EQ(meSuccess, store.loadInline(makeInline(id, parentId, 0x1040, 0x20)));
        EXPECT_EQ(1u, parent->codeRegions().front()->inlinedRegions().size());
        // Another method inlined over the same range is no repeat.
        JitMethod::Ptr other = makeInline(id, parentId, 0x1040, 0x20);
        other->methodInfo()->setMethodName("other");
        EXPECT_EQ(meSuccess, store.loadInline(other));
        EXPECT_TRUE(other->attachedToParent());
    }
}

// Inlines need both ids, and parent code that is still there.
TEST(JitDataManagerInlineTest, ProfilerInlinesNeedBothIdsAndLiveParentCode) {
    LogCapture log;
    InlineStore store(ctJitProfiler);
    EXPECT_EQ(meNotFound, store.loadInline(makeInline(0, kParent, 0x1040, 0x20)));
    EXPECT_TRUE(log.contains("Couldn't inline method (method id = 0) because method id is invalid."));
    EXPECT_EQ(meNotFound, store.loadInline(makeInline(kOuter, 0, 0x1040, 0x20)));
    EXPECT_TRUE(log.contains("Couldn't inline method (method id = 0xc8) because its parent id = 0 is invalid."));

    const JitMethod::Ptr parent = store.loadParent(0x1000, 0x100, 10);
    store.loadParent(0x1000, 0x200, 20, kParent + 1);
    store.loadParent(0x2000, 0x300, 30);
    const JitMethod::Ptr onOldCode = makeInline(kOuter, kParent, 0x1040, 0x20);
    EXPECT_EQ(meSuccess, store.loadInline(onOldCode));
    EXPECT_FALSE(onOldCode->attachedToParent());
    const JitMethod::Ptr onLiveCode = makeInline(kOuter + 1, kParent, 0x2040, 0x20);
    EXPECT_EQ(meSuccess, store.loadInline(onLiveCode));
    EXPECT_TRUE(onLiveCode->attachedToParent());
    EXPECT_EQ(1u, parent->codeRegions().back()->inlinedRegions().size());
}

// Two inlines that name each other as parent would close their regions into a ring.
TEST(JitDataManagerInlineTest, InlinesNamingEachOtherAsParentDontFormARing) {
    LogCapture log;
    InlineStore store(ctJitProfiler);
    const JitMethod::Ptr first = makeInline(kOuter, kInner, 0x1040, 0x20);
    const JitMethod::Ptr second = makeInline(kInner, kOuter, 0x1040, 0x20);
    EXPECT_EQ(meSuccess, store.loadInline(first));
    EXPECT_EQ(meNotFound, store.loadInline(second));
    EXPECT_TRUE(first->attachedToParent());
    EXPECT_FALSE(second->attachedToParent());
    EXPECT_EQ(1u, second->codeRegions().front()->inlinedRegions().size());
    EXPECT_TRUE(first->codeRegions().front()->inlinedRegions().empty());
    EXPECT_TRUE(log.contains("because the parent's code region lies in it"));
}

// Without the profiler an inline lies in whatever code stands at its address,
// takes its jit RVA at once, and goes into the deepest inline holding it.
TEST(JitDataManagerInlineTest, OtherCollectorsPlaceInlinesByAddress) {
    LogCapture log;
    InlineStore store(0);
    const JitMethod::Ptr parent = store.loadParent(0x1000, 0x100, 10);
    const JitMethod::Ptr outer = withLine(makeInline(0, 0, 0x1040, 0x20, 20), 42);
    const JitMethod::Ptr inner = makeInline(0, 0, 0x1048, 0x8, 20);
    EXPECT_EQ(meSuccess, store.loadInline(outer));
    EXPECT_EQ(meSuccess, store.loadInline(inner));
    EXPECT_EQ(0x140u, outer->codeRegions().front()->startJitRva());
    EXPECT_EQ(0x148u, inner->codeRegions().front()->startJitRva());
    const Region::Ptr& parentRegion = parent->codeRegions().front();
    ASSERT_EQ(1u, parentRegion->inlinedRegions().size());
    EXPECT_EQ(ISymbol::Ptr(inner), outer->codeRegions().front()->getInlinedSymbol(0x14a));

    store.manager.finalize();
    EXPECT_EQ(42u, lineAt(outer, 0x145));

    EXPECT_EQ(meNotFound, store.loadInline(makeInline(0, 0, 0x5000, 0x8, 20)));
    EXPECT_EQ(meNotFound, store.loadInline(makeInline(0, 0, 0x1040, 0x8, 5)));
    EXPECT_EQ(2u, log.count("Couldn't inline method (method id = 0) because parent method is not found."));
    EXPECT_EQ(meNotFound, store.loadInline(makeInline(0, 0, 0x10f8, 0x10, 20)));
    EXPECT_TRUE(log.contains("because it overlaps parent's ip range 0x1000-0x1100"));
}

// Inlines placed by address go where a walk from the method, each time into its
// first inline that holds the start, ends; any shape, overlaps included, ends up
// as that walk builds it, and a record read again is recognised anywhere in the
// tree. Plain models of the walk and of the overlap rule tell what to expect.
// (With the profiler every inline goes right below its method, under the same
// overlap rule: the sibling rows above show it.)
TEST(JitDataManagerInlineTest, InlinesGoWhereTheWalkEndsAndOverlapsAreRefused) {
    struct Node {
        u64_t start;
        u64_t end;
        std::vector<std::size_t> children;
    };
    const u64_t top = 0x1000;
    const u64_t topEnd = 0x1400;
    // The walk as a plain model: refusals at the method's level, and the first holding child below.
    const auto place = [&](std::vector<Node>& model, u64_t start, u64_t end) {
        if (start < top || end > topEnd)
            return false;
        for (std::size_t i = 1; i < model.size(); ++i)
            if (model[i].start == start && model[i].end == end)
                return false;
        for (const std::size_t child : model[0].children) {
            const Node& other = model[child];
            const bool apart = end <= other.start || start >= other.end;
            const bool inside = end <= other.end && start >= other.start;
            if (!apart && !inside)
                return false;
        }
        std::size_t parent = 0;
        for (bool deeper = true; deeper;) {
            deeper = false;
            for (const std::size_t child : model[parent].children)
                if (model[child].start <= start && start < model[child].end) {
                    parent = child;
                    deeper = true;
                    break;
                }
        }
        model[parent].children.push_back(model.size());
        model.push_back(Node{start, end, {}});
        return true;
    };
    const std::function<std::string(const Region&)> shapeOf = [&](const Region& region) {
        std::string text = "(";
        for (const Region::Ptr& child : region.inlinedRegions())
            text += std::to_string(child->startAddress() - top) + "+" + std::to_string(child->length()) +
                    shapeOf(*child);
        return text + ")";
    };
    const std::function<std::string(const std::vector<Node>&, std::size_t)> modelShape =
        [&](const std::vector<Node>& model, std::size_t index) {
            std::string text = "(";
            for (const std::size_t child : model[index].children)
                text += std::to_string(model[child].start - top) + "+" +
                        std::to_string(model[child].end - model[child].start) + modelShape(model, child);
            return text + ")";
        };

    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        InlineStore store(0);
        const JitMethod::Ptr parent = store.loadCode(kParent, top, 0x400, 0x100, 10);
        std::vector<Node> model(1, Node{top, topEnd, {}});
        // Narrow ranges for some seeds, wide ones for others; some reach past the method.
        const u64_t widest = seed % 3 == 0 ? 0x300 : seed % 3 == 1 ? 0x40 : 0x10;
        for (int record = 0; record < 300; ++record) {
            const u64_t start = top + random() % 0x400;
            const u64_t length = 1 + random() % widest;
            const bool placed = place(model, start, start + length);
            const JitMethod::Ptr inlined = makeInline(0, 0, start, static_cast<u32_t>(length), 20);
            store.loadInline(inlined);
            ASSERT_EQ(placed, inlined->attachedToParent()) << "record " << record;
        }
        EXPECT_EQ(modelShape(model, 0), shapeOf(*parent->codeRegions().front()));
    }
}

} // namespace
