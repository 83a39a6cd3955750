// The eager front end over real trace directories, as a caller uses it.
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace korvane_3_10;
using korvane_test::inlineAt;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;
using korvane_tracewriter::TraceWriter;

typedef boost::intrusive_ptr<ISymbolResolver> ResolverPtr;

ResolverPtr resolverOver(const std::vector<std::string>& paths) {
    PathList list(paths);
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    return ISymbolResolver::create(list.iterator(), noLocator);
}

std::map<std::string, ISymbol::Ptr> symbolsByName(const ResolverPtr& resolver) {
    std::map<std::string, ISymbol::Ptr> symbols;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next())
        symbols[walk.current()->getMethodName()] = walk.current();
    return symbols;
}

ICodeRegion::Ptr firstRegion(const ISymbol::Ptr& symbol) { return symbol->getRegions().current(); }

class CountedLocator : public ISymbolFileLocator {};

TEST(SymbolResolverTest, NoDirectoriesGiveAnEmptyWorkingResolver) {
    const ResolverPtr resolver = resolverOver({});
    ASSERT_TRUE(resolver);
    EXPECT_TRUE(resolver->getSymbols().at_end());
    for (jit_rva_t jitRva : {jit_rva_t(0), jit_rva_t(1), ~jit_rva_t(0)})
        EXPECT_FALSE(resolver->getSymbol(jitRva));
    const char* name = "x";
    EXPECT_EQ(meSuccess, resolver->getHostNameById(1, &name));
    EXPECT_EQ(nullptr, name);
}

TEST(SymbolResolverTest, LocatorIsHeldForTheResolversLifeOnly) {
    boost::intrusive_ptr<ISymbolFileLocator> locator(new CountedLocator());
    PathList paths({});
    ResolverPtr resolver = ISymbolResolver::create(paths.iterator(), locator);
    ASSERT_TRUE(resolver);
    EXPECT_EQ(3u, locator->addRef());
    locator->release();
    resolver.reset();
    EXPECT_EQ(2u, locator->addRef());
    locator->release();
}

TEST(SymbolResolverTest, DirectoriesOfEveryKind) {
    TempDir dir;
    const std::string empty = dir.mkdir("empty");
    const std::string good = dir.mkdir("good");
    const std::string mixed = dir.mkdir("mixed");
    const std::string badName = dir.mkdir("bad-name");
    const TraceWriter trace = profilerTrace().loadV3(methodAt(1, 0x1000, 0x20, 10, "run"));
    dir.write("good/h.1.jit", trace);
    dir.write("mixed/h.1.jit", trace);
    TraceWriter broken = profilerTrace();
    broken.raw({9, 0, 0, 0, 1, 2});
    dir.write("mixed/h.2.jit", broken);
    dir.write("mixed/notes.txt", trace);
    dir.write("bad-name/h.1.jit", trace);
    dir.write("bad-name/a.jit", trace);

    struct Case {
        std::vector<std::string> paths;
        bool created;
        std::size_t symbols;
    };
    const std::vector<Case> cases = {
        {{empty}, true, 0},
        {{good}, true, 1},
        {{mixed}, true, 1},
        {{good, mixed}, true, 1},
        {{badName}, false, 0},
        {{good, dir.file("missing")}, false, 0},
        {{dir.file("good/h.1.jit")}, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.paths.front());
        const ResolverPtr resolver = resolverOver(c.paths);
        ASSERT_EQ(c.created, static_cast<bool>(resolver));
        if (resolver) {
            EXPECT_EQ(c.symbols, symbolsByName(resolver).size());
        }
    }
}

// Host "alpha", process 100, in two files: the first (by name) holds a method
// with an inline; the second, read later, holds a method that calls into it.
class SymbolResolverFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        first = dir.write("alpha.100-1.jit", profilerTrace()
                                                  .loadV3(methodAt(1, 0x10000, 0x40, 10, "outer"))
                                                  .inlineLoad(inlineAt(50, 1, 0x10010, 0x10, 10, 77)));
        dir.write("alpha.100-2.jit", profilerTrace().loadV3(methodAt(2, 0x20000, 0x20, 20, "caller")));
        dir.write("beta.100.jit", profilerTrace().loadV3(methodAt(1, 0x10000, 0x40, 10, "elsewhere")));
        resolver = resolverOver({dir.str()});
        ASSERT_TRUE(resolver);
        symbols = symbolsByName(resolver);
        ASSERT_EQ(3u, symbols.size());
    }

    TempDir dir;
    std::string first;
    ResolverPtr resolver;
    std::map<std::string, ISymbol::Ptr> symbols;
};

TEST_F(SymbolResolverFilesTest, SymbolsAreFoundByEveryJitRvaOfTheirCode) {
    const ISymbol::Ptr outer = symbols["App::outer"];
    const jit_rva_t start = outer->getStartJitRva();
    EXPECT_EQ(1u, start);
    EXPECT_EQ(outer, resolver->getSymbol(start));
    EXPECT_EQ(outer, resolver->getSymbol(start + 0x3f));
    EXPECT_NE(outer, resolver->getSymbol(start + 0x40));
    address_t address = 0;
    EXPECT_EQ(meSuccess, outer->getVirtualAddress(start + 0x21, &address));
    EXPECT_EQ(0x10021u, address);
    EXPECT_EQ(102u, outer->getSourceLocation(start + 0x21)->getLine());
    EXPECT_STREQ("/opt/app/libouter.so", outer->getModule()->getFilePath());

    const ISymbol::Ptr elsewhere = symbols["App::elsewhere"];
    u32_t pid = 0;
    EXPECT_EQ(meSuccess, elsewhere->getPid(elsewhere->getStartJitRva(), pid));
    EXPECT_EQ(100u, pid);
    const char* host = nullptr;
    EXPECT_EQ(meSuccess, resolver->getHostNameById(firstRegion(elsewhere)->getHostID(), &host));
    EXPECT_STREQ("beta", host);
    EXPECT_EQ(meInvalidArgument, resolver->getHostNameById(1, nullptr));
}

// The inline came with the first file; finalisations after the later files
// leave its line table on its own numbers.
TEST_F(SymbolResolverFilesTest, InlineOfAnEarlierFileKeepsItsSourceLine) {
    const ICodeRegion::Ptr region = firstRegion(symbols["App::outer"]);
    const jit_rva_t inlined = region->getStartJitRva() + 0x15;
    const ISymbol::Ptr inlineSymbol = region->getInlinedSymbol(inlined);
    ASSERT_TRUE(inlineSymbol);
    EXPECT_STREQ("App::inlined50", inlineSymbol->getMethodName());
    EXPECT_EQ(region->getStartJitRva() + 0x10, region->getInlinedCodeRegion(inlined)->getStartJitRva());
    ASSERT_TRUE(inlineSymbol->getSourceLocation(inlined));
    EXPECT_EQ(77u, inlineSymbol->getSourceLocation(inlined)->getLine());
    EXPECT_FALSE(region->getInlinedSymbol(region->getStartJitRva() + 0x20));
}

TEST_F(SymbolResolverFilesTest, CalleesAreFoundInTheCallersProcess) {
    const jit_rva_t caller = symbols["App::caller"]->getStartJitRva();
    jit_rva_t callee = 0;
    EXPECT_EQ(meSuccess, resolver->getCalleeRegion(caller + 4, 0x10008, &callee));
    EXPECT_EQ(symbols["App::outer"]->getStartJitRva() + 8, callee);
    EXPECT_EQ(meNotFound, resolver->getCalleeRegion(caller + 4, 0x90000, &callee));
}

TEST_F(SymbolResolverFilesTest, JitIdsAndAddressesTranslateToJitRvas) {
    struct Case {
        u32_t jitId;
        address_t address;
        std::string file;
        korvane_error_t result;
        jit_rva_t jitRva;
    };
    const jit_rva_t unset = 0xdead;
    const std::vector<Case> cases = {
        {0, 0x1234, "", meSuccess, 0x1234},
        {5, 0x10000, "", meNotFound, unset},
        {1, 0x10000, dir.file("gamma.1.jit"), meFileNotCatalogued, unset},
        {1, 0x10000, "alpha.100-1.jit", meFileNotCatalogued, unset},
        {1, 0x10003, first, meSuccess, 4},
        {1, 0x10040, first, meNotFound, 0},
        {1, 0x20004, dir.file("alpha.100-2.jit"), meSuccess, symbols["App::caller"]->getStartJitRva() + 4},
        // Jit ids count within their own file only.
        {2, 0x20000, first, meNotFound, 0},
        {9, 0x10000, first, meNotFound, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.jitId << " " << c.file);
        jit_rva_t jitRva = unset;
        EXPECT_EQ(c.result, resolver->translateToJitRva(c.jitId, c.address, c.file.c_str(), &jitRva));
        EXPECT_EQ(c.jitRva, jitRva);
    }
    jit_rva_t jitRva = unset;
    EXPECT_EQ(meNotFound, resolver->translateToJitRva(5, 0x10000, nullptr, &jitRva));
    EXPECT_EQ(unset, jitRva);
}

TEST(SymbolResolverArchTest, WordSizeChoosesWhichLoadRecordsAreRead) {
    TempDir dir;
    dir.write("h.1.jit", profilerTrace()
                             .loadV3(methodAt(1, 0x1000, 0x20, 10, "narrow"), korvane_tracewriter::Width::Bits32)
                             .loadV3(methodAt(2, 0x2000, 0x20, 10, "wide"), korvane_tracewriter::Width::Bits64));
    struct Case {
        bool any;
        korvane_arch arch;
        std::size_t symbols;
    };
    for (const Case& c : std::vector<Case>{{true, arch_xa32, 2}, {false, arch_xa32, 1}, {false, arch_xa64, 0}}) {
        PathList paths({dir.str()});
        boost::intrusive_ptr<ISymbolFileLocator> noLocator;
        const ResolverPtr resolver = c.any ? ISymbolResolver::create(paths.iterator(), noLocator)
                                           : ISymbolResolver::create(paths.iterator(), noLocator, c.arch);
        ASSERT_TRUE(resolver);
        EXPECT_EQ(c.symbols, symbolsByName(resolver).size());
    }
}

} // namespace
