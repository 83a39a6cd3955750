// korvane-jit methods, symbol, dump and resolve over traces written for the test.
#include "sample_file.h"
#include "text_output.h"
#include "tool_runner.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using korvane_test::runTool;
using korvane_test::TempDir;
using korvane_test::ToolRun;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::TraceWriter;
using korvane_tracewriter::Width;

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

InlineRecord javaInline(std::uint32_t id, std::uint32_t parentId, std::uint64_t address, std::uint32_t length) {
    InlineRecord record;
    record.methodId = id;
    record.parentId = parentId;
    record.loadTime = 101;
    record.startAddress = address;
    record.length = length;
    record.code = Bytes(length, 0x90);
    record.className = "Lshop/Item;";
    record.methodName = "price()J";
    record.sourceFileName = "Item.java";
    record.languageType = 5;
    record.nativeToSource = {{0, length, 77}};
    return record;
}

// One process with a method, an inline in it, and a second method.
class ToolCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        TraceWriter trace;
        trace.magic().collectorType(1);
        trace.loadV3(javaMethod(1, "Lshop/Cart;", "add(Lshop/Item;I)V", kBase, 0x40, 100));
        trace.inlineLoad(javaInline(2, 1, kBase + 0x20, 0x10));
        trace.loadV3(javaMethod(3, "Lshop/Cart;", "total()J", kBase + 0x100, 0x20, 200));
        m_trace = m_dir.write("shop.42.jit", trace);
    }

    std::string writeSamples(const std::string& content) const {
        const std::string path = m_samples.file("samples.csv");
        std::ofstream(path) << content;
        return path;
    }

    TempDir m_dir;
    TempDir m_samples;
    std::string m_trace;
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

TEST_F(ToolCommandsTest, MethodsShowsUnloadTimeOfReplacedCode) {
    TempDir dir;
    TraceWriter trace;
    trace.loadV2(javaMethod(1, "A", "old", kBase, 0x20, 100)).loadV2(javaMethod(2, "A", "new", kBase, 0x20, 300));
    dir.write("h.1.jit", trace);
    const ToolRun run = runTool("methods", {dir.str()});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_NE(std::string::npos, run.out.find("loaded 100  unloaded 300\n")) << run.out;
}

struct ArchCase {
    std::vector<std::string> options;
    std::size_t methods;
};

std::ostream& operator<<(std::ostream& out, const ArchCase& arch) {
    out << "methods";
    for (const std::string& option : arch.options)
        out << " " << option;
    return out;
}

class ToolArchTest : public ::testing::TestWithParam<ArchCase> {};

TEST_P(ToolArchTest, ArchChoosesTheWordSizeRead) {
    TempDir dir;
    TraceWriter trace;
    trace.loadV2(javaMethod(1, "A", "narrow", 0x8000000, 0x20, 100), Width::Bits32);
    trace.loadV2(javaMethod(2, "A", "wide", kBase, 0x20, 200), Width::Bits64);
    dir.write("h.1.jit", trace);
    std::vector<std::string> args = {dir.str()};
    args.insert(args.end(), GetParam().options.begin(), GetParam().options.end());
    const ToolRun run = runTool("methods", args);
    ASSERT_EQ(0, run.exitCode) << run.err;
    const std::string summary =
        std::to_string(GetParam().methods) + (GetParam().methods == 1 ? " method\n" : " methods\n");
    ASSERT_GE(run.out.size(), summary.size());
    EXPECT_EQ(summary, run.out.substr(run.out.size() - summary.size())) << run.out;
}

INSTANTIATE_TEST_SUITE_P(Options, ToolArchTest,
                         ::testing::Values(ArchCase{{}, 2}, ArchCase{{"--arch", "32"}, 1},
                                           ArchCase{{"--arch=64"}, 0}));

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
    ASSERT_EQ(0, byRva.exitCode) << byRva.err;
    EXPECT_NE(std::string::npos, byRva.out.find("Full name:       shop::Cart::add(shop::Item, int)\n"));
    EXPECT_NE(std::string::npos, byRva.out.find("\n1 method\n"));

    const ToolRun none = runTool("dump", {m_dir.str(), "--rva", "0x999"});
    EXPECT_EQ("0 methods\n", none.out);
    EXPECT_NE(std::string::npos, runTool("dump", {m_dir.str()}).out.find("\n2 methods\n"));
}

TEST_F(ToolCommandsTest, ResolveWritesOneRowPerFrame) {
    const std::string samples = writeSamples("timestamp,ip,pid,host\n"
                                             "150,0x7f0000001024,42,shop\n"
                                             "150,139637976731656,42,shop\n"
                                             "0x96,0x7f0000001108,42,shop\n"
                                             "50,0x7f0000001024,42,shop\n"
                                             "150,0x7f0000001024,43,shop\n"
                                             "150,0x7f0000001024,42,nowhere\n");
    const ToolRun run = runTool("resolve", {m_dir.str(), "--samples", samples});
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

TEST_F(ToolCommandsTest, ResolveWritesJsonLines) {
    const std::string samples = writeSamples("timestamp,ip,pid,host\n250,0x7f0000001110,42,shop\n1,0x10,42,shop\n");
    const ToolRun run = runTool("resolve", {m_dir.str(), "--samples", samples, "--json"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("{\"timestamp\":250,\"ip\":\"0x7f0000001110\",\"pid\":42,\"host\":\"shop\",\"result\":\"jit\","
              "\"jit_rva\":\"0x51\",\"module\":\"[Compiled Java code]\",\"frames\":[{\"method\":"
              "\"shop::Cart::total()\",\"source_file\":\"Shop.java\",\"line\":11}]}\n"
              "{\"timestamp\":1,\"ip\":\"0x10\",\"pid\":42,\"host\":\"shop\",\"result\":\"outside JIT code\"}\n",
              run.out);
}

TEST_F(ToolCommandsTest, ResolveReportsBadLinesAndGoesOn) {
    const std::string samples = writeSamples("timestamp,ip,pid,host\n150,zz,42,shop\n150,0x7f0000001024,42,shop\n");
    const ToolRun run = runTool("resolve", {m_dir.str(), "--samples", samples});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ(samples + ":2: ip 'zz' is no number; line skipped\n", run.err);
    EXPECT_NE(std::string::npos, run.out.find("150,0x7f0000001024,42,shop,jit,0x25"));
}

TEST_F(ToolCommandsTest, ResolveTellsOfAnUnreadableTrace) {
    TempDir dir;
    dir.write("h.1.jit", TraceWriter().magic().loadV3(javaMethod(1, "A", "f", kBase, 0x20, 10)).raw({1, 0, 0, 0}));
    const std::string samples = writeSamples("timestamp,ip,pid,host\n20,0x7f0000001004,1,h\n");
    const ToolRun run = runTool("resolve", {dir.str(), "--samples", samples});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find(",trace not readable (result code 14),")) << run.out;
}

TEST_F(ToolCommandsTest, ResolveOverAMissingDirectorySaysSo) {
    const std::string samples = writeSamples("timestamp,ip,pid,host\n1,2,3,h\n");
    const ToolRun run = runTool("resolve", {m_dir.file("gone"), "--samples", samples});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ("korvane-jit: " + m_dir.file("gone") + ": no such directory\n", run.err);
    EXPECT_EQ("", run.out);
}

struct UsageCase {
    const char* title;
    std::string command;
    std::vector<std::string> args; // "@" stands for the trace directory
    int exitCode;
    std::string message;
};

class ToolUsageTest : public ToolCommandsTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(ToolUsageTest, RefusesWithAMessage) {
    std::vector<std::string> args;
    for (const std::string& arg : GetParam().args)
        args.push_back(arg == "@" ? m_dir.str() : arg);
    const ToolRun run = runTool(GetParam().command, args);
    EXPECT_EQ(GetParam().exitCode, run.exitCode);
    EXPECT_NE(std::string::npos, run.err.find(GetParam().message)) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, ToolUsageTest,
    ::testing::Values(
        UsageCase{"MethodsWithoutDirectory", "methods", {}, 2, "Usage: korvane-jit methods DIR... [--arch 32|64]"},
        UsageCase{"MethodsBadArch", "methods", {"@", "--arch", "16"}, 2, "--arch wants 32 or 64, not '16'"},
        UsageCase{"MethodsMissingDirectory", "methods", {"/nonexistent/traces"}, 1,
                  "/nonexistent/traces: no such directory"},
        UsageCase{"SymbolWithoutRva", "symbol", {"@"}, 2, "no jit RVA given"},
        UsageCase{"SymbolWithoutDirectory", "symbol", {"12"}, 2, "no directory given"},
        UsageCase{"DumpBadRva", "dump", {"@", "--rva", "x1"}, 2, "--rva wants a number"},
        UsageCase{"ResolveWithoutSamples", "resolve", {"@"}, 2, "--samples FILE"},
        UsageCase{"ResolveMissingSampleFile", "resolve", {"@", "--samples", "/nonexistent.csv"}, 1,
                  "/nonexistent.csv: cannot open the sample file"}),
    [](const ::testing::TestParamInfo<UsageCase>& info) { return info.param.title; });

struct SampleCase {
    const char* title;
    std::string content;
    bool good;
    std::size_t samples;
    std::string message;
};

class SampleFileTest : public ::testing::TestWithParam<SampleCase> {};

TEST_P(SampleFileTest, ReadsGoodLinesAndNamesBadOnes) {
    std::istringstream in(GetParam().content);
    std::ostringstream err;
    std::vector<korvane_tool::Sample> samples;
    EXPECT_EQ(GetParam().good, korvane_tool::SampleFile::read(in, "s.csv", samples, err));
    EXPECT_EQ(GetParam().samples, samples.size());
    if (GetParam().message.empty())
        EXPECT_EQ("", err.str());
    else
        EXPECT_NE(std::string::npos, err.str().find(GetParam().message)) << err.str();
}

INSTANTIATE_TEST_SUITE_P(
    Files, SampleFileTest,
    ::testing::Values(
        SampleCase{"HeaderOnly", "timestamp,ip,pid,host\n", true, 0, ""},
        SampleCase{"Empty", "", true, 0, ""},
        SampleCase{"CrLfBlanksAndComments", "# samples\r\ntimestamp, ip, pid, host\r\n\r\n1,0x2,3,h\r\n# end\n", true,
                   1, ""},
        SampleCase{"NoHeader", "1,2,3,h\n", false, 0, "s.csv:1: the first line must be the header"},
        SampleCase{"TooFewColumns", "timestamp,ip,pid,host\n1,2,3\n4,5,6,h\n", false, 1,
                   "s.csv:2: expected 4 columns"},
        SampleCase{"PidTooLarge", "timestamp,ip,pid,host\n1,2,4294967296,h\n", false, 0, "pid '4294967296'"},
        SampleCase{"EmptyHost", "timestamp,ip,pid,host\n1,2,3,\n", false, 0, "s.csv:2: host is empty"},
        SampleCase{"BadTimestamp", "timestamp,ip,pid,host\n-1,2,3,h\n", false, 0, "timestamp '-1' is no number"}),
    [](const ::testing::TestParamInfo<SampleCase>& info) { return info.param.title; });

TEST(SampleFileTest, KeepsTheValues) {
    std::istringstream in("timestamp,ip,pid,host\n0x10,4096,4294967295,alpha.example.net\n");
    std::ostringstream err;
    std::vector<korvane_tool::Sample> samples;
    ASSERT_TRUE(korvane_tool::SampleFile::read(in, "s.csv", samples, err));
    ASSERT_EQ(1u, samples.size());
    EXPECT_EQ(16u, samples[0].timestamp);
    EXPECT_EQ(4096u, samples[0].ip);
    EXPECT_EQ(4294967295u, samples[0].pid);
    EXPECT_EQ("alpha.example.net", samples[0].host);
}

TEST(TextOutputTest, QuotesCsvAndEscapesJson) {
    EXPECT_EQ("plain", korvane_tool::csvField("plain"));
    EXPECT_EQ("\"f(int, long)\"", korvane_tool::csvField("f(int, long)"));
    EXPECT_EQ("\"say \"\"hi\"\"\"", korvane_tool::csvField("say \"hi\""));
    EXPECT_EQ("\"two\nlines\"", korvane_tool::csvField("two\nlines"));
    EXPECT_EQ("\"a\\\"b\\\\c\\n\\u0001\"", korvane_tool::jsonString(std::string("a\"b\\c\n\x01", 7)));
    EXPECT_EQ("0x0", korvane_tool::hexText(0));
    EXPECT_EQ("0xffffffffffffffff", korvane_tool::hexText(~std::uint64_t(0)));
    EXPECT_EQ("", korvane_tool::text(nullptr));
}

} // namespace
