// The eager front end over real trace directories, as a caller uses it.
#include "test_support.h"
#include "trace_builder.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace korvane_3_10;
using korvane_test::inlineAt;
using korvane_test::methodAt;
using korvane_test::profilerTrace;
using korvane_test::resolverOver;
using korvane_test::symbolsByName;
using korvane_test::TempDir;
using korvane_tracewriter::TraceWriter;

typedef boost::intrusive_ptr<ISymbolResolver> ResolverPtr;

// Files are read in large pieces: records that cross the edge of a piece, or are
// larger than one, arrive whole, bytes and all.
TEST(SymbolResolverTest, RecordsAcrossAndBeyondTheReadPiecesArriveWhole) {
    TempDir dir;
    const std::vector<u32_t> lengths = {300000, 300000, 300000, 300000, 3u << 20, 0x40};
    TraceWriter trace = profilerTrace();
    address_t address = 0x100000;
    for (std::size_t index = 0; index < lengths.size(); ++index) {
        korvane_tracewriter::LoadRecord record =
            methodAt(u32_t(index + 1), address, lengths[index], 10, "m" + std::to_string(index));
        record.nativeToSource.resize(1);
        std::fill(record.ranges.front().code.begin(), record.ranges.front().code.end(), std::uint8_t(index));
        trace.loadV3(record);
        address += lengths[index];
    }
    dir.write("h.1.jit", trace);
    const ResolverPtr resolver = resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    auto symbols = symbolsByName(*resolver);
    ASSERT_EQ(lengths.size(), symbols.size());
    for (std::size_t index = 0; index < lengths.size(); ++index) {
        SCOPED_TRACE(index);
        const ISymbol::Ptr symbol = symbols["App::m" + std::to_string(index)];
        ASSERT_TRUE(symbol);
        const boost::shared_ptr<IByteBuffer> bytes = symbol->getRegions().current()->getBytes();
        ASSERT_TRUE(bytes);
        ASSERT_EQ(lengths[index], bytes->size());
        const unsigned char* data = static_cast<const unsigned char*>(bytes->data());
        EXPECT_EQ(index, data[0]);
        EXPECT_EQ(index, data[lengths[index] - 1]);
        EXPECT_EQ(symbol, resolver->getSymbol(symbol->getStartJitRva() + lengths[index] - 1));
    }
}

// A directory named by a short relative path gives paths short enough to live
// inside their string; each file is still found by its path as the scan spelled it.
TEST(SymbolResolverTest, ShortRelativePathsConvertAfterMoreFilesAreScanned) {
    TempDir dir;
    const int kFiles = 9;
    dir.mkdir("d");
    for (int index = 0; index < kFiles; ++index)
        dir.write("d/h.1-" + std::to_string(index + 1) + ".jit",
                  profilerTrace().loadV3(methodAt(1, 0x1000 * (index + 1), 0x20, 10, "m" + std::to_string(index))));
    const boost::filesystem::path home = boost::filesystem::current_path();
    boost::filesystem::current_path(dir.path());
    const ResolverPtr resolver = resolverOver({"d"});
    boost::filesystem::current_path(home);
    const ResolverPtr byFullPaths = resolverOver({dir.file("d")});
    ASSERT_TRUE(resolver && byFullPaths);
    for (int index = 0; index < kFiles; ++index) {
        SCOPED_TRACE(index);
        const std::string file = "d/h.1-" + std::to_string(index + 1) + ".jit";
        jit_rva_t jitRva = 0;
        jit_rva_t byFullPath = 0;
        EXPECT_EQ(meSuccess, resolver->translateToJitRva(1, 0x1000 * (index + 1), file.c_str(), &jitRva));
        EXPECT_EQ(meSuccess,
                  byFullPaths->translateToJitRva(1, 0x1000 * (index + 1), dir.file(file).c_str(), &byFullPath));
        EXPECT_EQ(byFullPath, jitRva);
    }
}

// Directories of long and short names that hold the same file names: each
// file is found by its own path, and a path one byte off names no file.
TEST(SymbolResolverTest, SameFileNamesInManyDirectoriesEachFindTheirOwnFile) {
    TempDir dir;
    const std::vector<std::string> directories = {"a", "b", std::string(40, 'l') + "1", std::string(40, 'l') + "2",
                                                  std::string(29, 'm')};
    const std::vector<std::string> names = {"h.1.jit", "h.1-2.jit", "a-long-host-name.example.net.4242-0001.jit"};
    std::vector<std::string> files;
    for (const std::string& directory : directories) {
        dir.mkdir(directory);
        for (const std::string& name : names) {
            const address_t address = 0x1000 * (files.size() + 1);
            files.push_back(dir.write(directory + "/" + name,
                                      profilerTrace().loadV3(methodAt(u32_t(files.size() + 1), address, 0x20, 10, "m"))));
        }
    }
    std::vector<std::string> paths;
    for (const std::string& directory : directories)
        paths.push_back(dir.file(directory));
    const ResolverPtr resolver = resolverOver(paths);
    ASSERT_TRUE(resolver);
    std::set<jit_rva_t> seen;
    for (std::size_t index = 0; index < files.size(); ++index) {
        SCOPED_TRACE(files[index]);
        const address_t address = 0x1000 * (index + 1);
        jit_rva_t jitRva = 0;
        ASSERT_EQ(meSuccess, resolver->translateToJitRva(1, address + 2, files[index].c_str(), &jitRva));
        EXPECT_TRUE(seen.insert(jitRva).second);
        ASSERT_TRUE(resolver->getSymbol(jitRva));
        EXPECT_EQ(jitRva, resolver->getSymbol(jitRva)->getStartJitRva() + 2);
        const std::string other = files[(index + 1) % files.size()];
        EXPECT_EQ(meNotFound, resolver->translateToJitRva(1, address + 2, other.c_str(), &jitRva));
        for (const std::string& near : {files[index] + "x", files[index].substr(0, files[index].size() - 1)})
            EXPECT_EQ(meFileNotCatalogued, resolver->translateToJitRva(1, address, near.c_str(), &jitRva)) << near;
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
        symbols = symbolsByName(*resolver);
        ASSERT_EQ(3u, symbols.size());
    }

    TempDir dir;
    std::string first;
    ResolverPtr resolver;
    std::map<std::string, ISymbol::Ptr> symbols;
};

// The inline came with the first file; finalisations after the later files
// leave its line table on its own numbers.
TEST_F(SymbolResolverFilesTest, SymbolsAndInlinesAnswerForEveryJitRvaOfTheirCode) {
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
    // Outside its code a method answers neither address nor process, and leaves both as they were.
    for (const jit_rva_t outside : {start - 1, start + 0x40}) {
        address_t untouched = 0xdead;
        u32_t pid = 0xbeef;
        EXPECT_EQ(meNotFound, outer->getVirtualAddress(outside, &untouched));
        EXPECT_EQ(meNotFound, outer->getPid(outside, pid));
        EXPECT_EQ(0xdeadu, untouched);
        EXPECT_EQ(0xbeefu, pid);
    }

    const ICodeRegion::Ptr region = outer->getRegions().current();
    const ISymbol::Ptr inlined = region->getInlinedSymbol(start + 0x15);
    ASSERT_TRUE(inlined);
    EXPECT_STREQ("App::inlined50", inlined->getMethodName());
    EXPECT_EQ(start + 0x10, region->getInlinedCodeRegion(start + 0x15)->getStartJitRva());
    ASSERT_TRUE(inlined->getSourceLocation(start + 0x15));
    EXPECT_EQ(77u, inlined->getSourceLocation(start + 0x15)->getLine());
    EXPECT_FALSE(region->getInlinedSymbol(start + 0x20));

    const ISymbol::Ptr elsewhere = symbols["App::elsewhere"];
    u32_t pid = 0;
    EXPECT_EQ(meSuccess, elsewhere->getPid(elsewhere->getStartJitRva(), pid));
    EXPECT_EQ(100u, pid);
    const char* host = nullptr;
    EXPECT_EQ(meSuccess, resolver->getHostNameById(elsewhere->getRegions().current()->getHostID(), &host));
    EXPECT_STREQ("beta", host);
}

// The first of the symbol's regions whose jit RVAs hold the number, as a caller finds it by listing them.
ICodeRegion::Ptr listedRegionHolding(const ISymbol::Ptr& symbol, jit_rva_t jitRva) {
    if (!symbol)
        return ICodeRegion::Ptr();
    for (auto regions = symbol->getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        if (jitRva - region->getStartJitRva() < region->getLength())
            return region;
    }
    return ICodeRegion::Ptr();
}

// One resolver answers samples as a loader over the same files does, with the symbol and its region besides.
TEST_F(SymbolResolverFilesTest, SamplesAnswerAsTheLoaderAnswersThem) {
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({dir.str()});
    ASSERT_TRUE(loader);
    const struct {
        const char* host;
        u64_t timestamp;
        address_t address;
        const char* method;
    } cases[] = {
        {"alpha", 20, 0x10021, "App::outer"},    {"beta", 20, 0x1003f, "App::elsewhere"},
        {"alpha", 25, 0x20004, "App::caller"},   {"alpha", 15, 0x20004, nullptr},
        {"alpha", 20, 0x10040, nullptr},         {"gamma", 20, 0x10021, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.host << " " << c.timestamp << " " << std::hex << c.address);
        u32_t hostId = 99;
        u32_t loaderHostId = 98;
        EXPECT_EQ(meSuccess, getHostIdByName(*resolver, c.host, &hostId));
        EXPECT_EQ(meSuccess, loader->getHostIdByName(c.host, &loaderHostId));
        EXPECT_EQ(loaderHostId, hostId);
        jit_rva_t jitRva = 0xdead;
        jit_rva_t loaderJitRva = 0xdead;
        ISymbol::Ptr symbol;
        IModule::Ptr module;
        const korvane_error_t result = resolveJitPoint(*resolver, c.timestamp, c.address, 100, hostId, &jitRva, symbol);
        EXPECT_EQ(loader->resolveJitPoint(c.timestamp, c.address, 100, hostId, &loaderJitRva, module), result);
        EXPECT_EQ(loaderJitRva, jitRva);
        EXPECT_EQ(c.method ? symbols[c.method] : ISymbol::Ptr(), symbol);
        EXPECT_EQ(module ? std::string(module->getFilePath()) : "none",
                  symbol ? std::string(symbol->getModule()->getFilePath()) : "none");
        // The same answer with the region there: the symbol's region that holds the jit RVA.
        jit_rva_t regionJitRva = 0xdead;
        ISymbol::Ptr regionSymbol;
        ICodeRegion::Ptr region;
        EXPECT_EQ(result, resolveJitPoint(*resolver, c.timestamp, c.address, 100, hostId, &regionJitRva, regionSymbol,
                                          region));
        EXPECT_EQ(symbol, regionSymbol);
        EXPECT_EQ(result == meSuccess ? jitRva : 0xdead, regionJitRva);
        EXPECT_EQ(listedRegionHolding(symbol, jitRva), region);
    }
}

TEST_F(SymbolResolverFilesTest, CalleesAndJitIdsTranslateToJitRvas) {
    const jit_rva_t caller = symbols["App::caller"]->getStartJitRva();
    jit_rva_t callee = 0;
    EXPECT_EQ(meSuccess, resolver->getCalleeRegion(caller + 4, 0x10008, &callee));
    EXPECT_EQ(symbols["App::outer"]->getStartJitRva() + 8, callee);
    EXPECT_EQ(meNotFound, resolver->getCalleeRegion(caller + 4, 0x90000, &callee));

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
        {1, 0x20004, dir.file("alpha.100-2.jit"), meSuccess, caller + 4},
        // Another spelling of the same path names the same file.
        {1, 0x20004, dir.str() + "//alpha.100-2.jit", meSuccess, caller + 4},
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

} // namespace
