// korvane-jit methods, symbol, dump and resolve over traces written for the test.
#include "tool_runner.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using korvane_test::runTool;
using korvane_test::TempDir;
using korvane_test::ToolRun;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;

const std::uint64_t kBase = 0x7f0000001000;

LoadRecord javaMethod(std::uint32_t id, const char* className, const char* methodName, std::uint64_t address,
                      std::uint32_t length, std::uint64_t loadTime) {
    LoadRecord record;
    record.methodId = id;
    record.loadTime = loadTime;
    record.ranges.push_back({address, length, Bytes(length, 0x90)});
    record.className = className;
    record.methodName = methodName;
    record.sourceFileName = "Shop.java";
    record.languageType = 5;
    record.nativeToSource = {{0, 0x10, 10}, {0x10, length, 11}};
    return record;
}

// One process with a method, an inline in it, and a second method.
class ToolCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        korvane_tracewriter::InlineRecord price;
        price.methodId = 2;
        price.parentId = 1;
        price.loadTime = 101;
        price.startAddress = kBase + 0x20;
        price.length = 0x10;
        price.code = Bytes(0x10, 0x90);
        price.className = "Lshop/Item;";
        price.methodName = "price()J";
        price.sourceFileName = "Item.java";
        price.languageType = 5;
        price.nativeToSource = {{0, 0x10, 77}};
        m_dir.write("shop.42.jit", TraceWriter()
                                       .magic()
                                       .collectorType(1)
                                       .loadV3(javaMethod(1, "Lshop/Cart;", "add(Lshop/Item;I)V", kBase, 0x40, 100))
                                       .inlineLoad(price)
                                       .loadV3(javaMethod(3, "Lshop/Cart;", "total()J", kBase + 0x100, 0x20, 200)));
    }

    ToolRun resolve(const std::string& samples, std::vector<std::string> options = {}) const {
        std::ofstream(m_samples.file("samples.csv")) << "timestamp,ip,pid,host\n" << samples;
        options.insert(options.begin(), {m_dir.str(), "--samples", m_samples.file("samples.csv")});
        return runTool("resolve", options);
    }

    TempDir m_dir;
    TempDir m_samples;
};

TEST_F(ToolCommandsTest, MethodsListsNamesModulesAndRegions) {
    const ToolRun run = runTool("methods", {m_dir.str()});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("shop::Cart::add(shop::Item, int)\n"
              "    name       shop::Cart::add\n"
              "    class      shop::Cart\n"
              "    module     [Compiled Java code]\n"
              "    load time  100\n"
              "    region  jit RVA [0x1, 0x41)  address [0x7f0000001000, 0x7f0000001040)  process 42  "
              "host 1 \"shop\"  loaded 100\n"
              "shop::Cart::total()\n"
              "    name       shop::Cart::total\n"
              "    class      shop::Cart\n"
              "    module     [Compiled Java code]\n"
              "    load time  200\n"
              "    region  jit RVA [0x41, 0x61)  address [0x7f0000001100, 0x7f0000001120)  process 42  "
              "host 1 \"shop\"  loaded 200\n"
              "2 methods\n",
              run.out);
}

TEST(ToolMethodsTest, ShowsUnloadTimesAndReadsTheWordSizeAsked) {
    TempDir replaced;
    replaced.write("h.1.jit", TraceWriter()
                                  .loadV2(javaMethod(1, "A", "old", kBase, 0x20, 100))
                                  .loadV2(javaMethod(2, "A", "new", kBase, 0x20, 300)));
    EXPECT_NE(std::string::npos, runTool("methods", {replaced.str()}).out.find("loaded 100  unloaded 300\n"));

    TempDir mixed;
    mixed.write("h.1.jit",
                TraceWriter()
                    .loadV2(javaMethod(1, "A", "narrow", 0x8000000, 0x20, 100), korvane_tracewriter::Width::Bits32)
                    .loadV2(javaMethod(2, "A", "wide", kBase, 0x20, 200), korvane_tracewriter::Width::Bits64));
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "\n2 methods\n"}, {{"--arch", "32"}, "\n1 method\n"}, {{"--arch=64"}, "0 methods\n"}};
    for (const auto& c : cases) {
        std::vector<std::string> args = {mixed.str()};
        args.insert(args.end(), c.first.begin(), c.first.end());
        const ToolRun run = runTool("methods", args);
        EXPECT_EQ(0, run.exitCode) << run.err;
        EXPECT_EQ(c.second, run.out.substr(run.out.size() - std::min(run.out.size(), c.second.size())));
    }
}

TEST_F(ToolCommandsTest, SymbolNamesMethodAndLine) {
    const ToolRun run = runTool("symbol", {m_dir.str(), "1", "0x12", "0x41", "0x61", "0"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("jit RVA 0x1: shop::Cart::add(shop::Item, int)  Shop.java:10\n"
              "jit RVA 0x12: shop::Cart::add(shop::Item, int)  Shop.java:11\n"
              "jit RVA 0x41: shop::Cart::total()  Shop.java:10\n"
              "jit RVA 0x61: no method\n"
              "jit RVA 0x0: no method\n",
              run.out);
}

TEST_F(ToolCommandsTest, DumpSelectsByNameOrByRva) {
    const ToolRun byName = runTool("dump", {m_dir.str(), "--method", "total"});
    ASSERT_EQ(0, byName.exitCode) << byName.err;
    EXPECT_NE(std::string::npos, byName.out.find("Full name:       shop::Cart::total()\n"));
    EXPECT_EQ(std::string::npos, byName.out.find("shop::Cart::add"));
    EXPECT_NE(std::string::npos, byName.out.find("\n1 method\n"));
    const ToolRun byRva = runTool("dump", {m_dir.str(), "--rva", "0x25"});
    EXPECT_NE(std::string::npos, byRva.out.find("Full name:       shop::Cart::add(shop::Item, int)\n"));
    EXPECT_NE(std::string::npos, byRva.out.find("\n1 method\n"));
    EXPECT_EQ("0 methods\n", runTool("dump", {m_dir.str(), "--rva", "0x999"}).out);
    EXPECT_NE(std::string::npos, runTool("dump", {m_dir.str()}).out.find("\n2 methods\n"));
}

TEST_F(ToolCommandsTest, ResolveWritesOneRowPerFrame) {
    const ToolRun run = resolve("150,0x7f0000001024,42,shop\n"
                                "150,139637976731656,42,shop\n"
                                "0x96,0x7f0000001108,42,shop\n"
                                "50,0x7f0000001024,42,shop\n"
                                "150,0x7f0000001024,43,shop\n"
                                "150,0x7f0000001024,42,nowhere\n");
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n"
              "150,0x7f0000001024,42,shop,jit,0x25,[Compiled Java code],0,\"shop::Cart::add(shop::Item, int)\","
              "Shop.java,11\n"
              "150,0x7f0000001024,42,shop,jit,0x25,[Compiled Java code],1,shop::Item::price(),Item.java,77\n"
              "150,0x7f0000001008,42,shop,jit,0x9,[Compiled Java code],0,\"shop::Cart::add(shop::Item, int)\","
              "Shop.java,10\n"
              "150,0x7f0000001108,42,shop,outside JIT code,,,,,,\n"
              "50,0x7f0000001024,42,shop,outside JIT code,,,,,,\n"
              "150,0x7f0000001024,43,shop,outside JIT code,,,,,,\n"
              "150,0x7f0000001024,42,nowhere,outside JIT code,,,,,,\n",
              run.out);
}

TEST_F(ToolCommandsTest, ResolveWritesJsonLinesAndSkipsBadLines) {
    const ToolRun json = resolve("250,0x7f0000001110,42,shop\n1,0x10,42,shop\n", {"--json"});
    ASSERT_EQ(0, json.exitCode) << json.err;
    EXPECT_EQ("{\"timestamp\":250,\"ip\":\"0x7f0000001110\",\"pid\":42,\"host\":\"shop\",\"result\":\"jit\","
              "\"jit_rva\":\"0x51\",\"module\":\"[Compiled Java code]\",\"frames\":[{\"method\":"
              "\"shop::Cart::total()\",\"source_file\":\"Shop.java\",\"line\":11}]}\n"
              "{\"timestamp\":1,\"ip\":\"0x10\",\"pid\":42,\"host\":\"shop\",\"result\":\"outside JIT code\"}\n",
              json.out);

    const ToolRun bad = resolve("150,zz,42,shop\n150,0x7f0000001024,42,shop\n");
    EXPECT_EQ(1, bad.exitCode);
    EXPECT_EQ(m_samples.file("samples.csv") + ":2: ip 'zz' is no number; line skipped\n", bad.err);
    EXPECT_NE(std::string::npos, bad.out.find("150,0x7f0000001024,42,shop,jit,0x25"));
}

TEST_F(ToolCommandsTest, ResolveTellsOfAnUnreadableTrace) {
    m_dir.write("shop.42.jit",
                TraceWriter().magic().loadV3(javaMethod(1, "A", "f", kBase, 0x20, 10)).raw({1, 0, 0, 0}));
    const ToolRun run = resolve("20,0x7f0000001004,42,shop\n");
    EXPECT_EQ(1, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find(",trace not readable (result code 14),")) << run.out;
}

} // namespace
