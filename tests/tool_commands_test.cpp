// korvane-jit's commands over traces written for the test, and its handling of
// arguments, sample files and output texts.
#include "argument_parser.h"
#include "sample_file.h"
#include "text_output.h"
#include "tool_runner.h"

#include "test_support.h"
#include "trace_builder.h"

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
        korvane_tracewriter::InlineRecord price = korvane_test::inlineAt(2, 1, kBase + 0x20, 0x10, 101, 77);
        price.className = "Lshop/Item;";
        price.methodName = "price()J";
        price.sourceFileName = "Item.java";
        price.languageType = 5;
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
              "shop::Cart::total()\n",
              run.out.substr(0, run.out.find("    name       shop::Cart::total\n")));
    EXPECT_EQ("\n2 methods\n", run.out.substr(run.out.size() - 11));
}

TEST(ToolMethodsTest, ArchChoosesTheWordSizeRead) {
    TempDir dir;
    dir.write("h.1.jit",
              TraceWriter()
                  .loadV2(javaMethod(1, "A", "narrow", 0x8000000, 0x20, 100), korvane_tracewriter::Width::Bits32)
                  .loadV2(javaMethod(2, "A", "wide", kBase, 0x20, 200), korvane_tracewriter::Width::Bits64));
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "\n2 methods\n"}, {{"--arch", "32"}, "\n1 method\n"}, {{"--arch=64"}, "0 methods\n"}};
    for (const auto& c : cases) {
        std::vector<std::string> args = {dir.str()};
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
                                "0x96,0x7f0000001108,42,shop\n");
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n"
              "150,0x7f0000001024,42,shop,jit,0x25,[Compiled Java code],0,\"shop::Cart::add(shop::Item, int)\","
              "Shop.java,11\n"
              "150,0x7f0000001024,42,shop,jit,0x25,[Compiled Java code],1,shop::Item::price(),Item.java,77\n"
              "150,0x7f0000001008,42,shop,jit,0x9,[Compiled Java code],0,\"shop::Cart::add(shop::Item, int)\","
              "Shop.java,10\n"
              "150,0x7f0000001108,42,shop,outside JIT code,,,,,,\n",
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

TraceWriter traceOfSize(std::size_t size) { return TraceWriter().raw(korvane_tracewriter::Bytes(size, 0)); }

TEST(ToolProcessesTest, ListsHostsProcessesFilesAndRanges) {
    TempDir dir;
    const std::string second = dir.write("beta.9.jit", traceOfSize(7));
    const std::string first = dir.write("alpha.4711-1.jit", traceOfSize(50));
    const std::string third = dir.write("alpha.4711.jit", traceOfSize(100));
    const ToolRun run = runTool("processes", {dir.str()});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("", run.err);
    EXPECT_EQ("host 1 \"alpha\"\n"
              "  process 4711, 2 files\n"
              "    jit RVA [0x1, 0x33)  50 bytes  " + first + "\n"
              "    jit RVA [0x33, 0x97)  100 bytes  " + third + "\n"
              "host 2 \"beta\"\n"
              "  process 9, 1 file\n"
              "    jit RVA [0x97, 0x9e)  7 bytes  " + second + "\n"
              "2 hosts, 2 processes, 3 files, 157 bytes\n",
              run.out);
    TempDir empty;
    EXPECT_EQ("0 hosts, 0 processes, 0 files, 0 bytes\n", runTool("processes", {empty.str()}).out);
    EXPECT_EQ("Usage: korvane-jit processes DIR...\n", runTool("processes", {"--help"}).out);
}

std::string withDirectory(std::string text, const std::string& directory) {
    for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + directory.size()))
        text.replace(at, 1, directory);
    return text;
}

// Each command refuses what it can't use, says why on stderr and prints nothing else.
TEST(ToolFailureTest, SaysWhatIsWrongAndWhere) {
    struct Case {
        std::string command;
        std::vector<std::string> files;     // trace files to write
        std::vector<std::string> arguments; // "@" stands for the directory
        int exitCode;
        std::vector<std::string> messages;  // each must be in stderr; "@" stands for the directory
    };
    const std::vector<Case> cases = {
        {"processes", {}, {"@/missing"}, 1, {"@/missing: no such directory"}},
        {"processes", {"h.1.jit"}, {"@/h.1.jit"}, 1, {"@/h.1.jit: is not a directory"}},
        {"processes", {"h.1.jit"}, {"@", "@/zz"}, 1, {"@/zz: no such directory"}},
        {"processes", {"h.1.jit", "a.jit", "4711.jit"}, {"@"}, 1,
         {"@/a.jit: the file name does not say host and process", "@/4711.jit: the file name"}},
        {"processes", {}, {}, 2, {"Usage: korvane-jit processes DIR..."}},
        {"processes", {}, {"--frobnicate", "@"}, 2, {"unknown option '--frobnicate'"}},
        {"methods", {}, {}, 2, {"Usage: korvane-jit methods DIR... [--arch 32|64]"}},
        {"methods", {}, {"@", "--arch", "16"}, 2, {"--arch wants 32 or 64, not '16'"}},
        {"symbol", {}, {"@"}, 2, {"no jit RVA given"}},
        {"symbol", {}, {"12"}, 2, {"no directory given"}},
        {"dump", {}, {"@", "--rva", "x1"}, 2, {"--rva wants a number"}},
        {"dump", {}, {"@", "--rva"}, 2, {"option '--rva' needs a value"}},
        {"resolve", {}, {"@"}, 2, {"--samples FILE"}},
        {"resolve", {}, {"@", "--samples", "@/none.csv"}, 1, {"@/none.csv: cannot open the sample file"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command + " " + (c.arguments.empty() ? "" : c.arguments.front()));
        TempDir dir;
        for (const std::string& name : c.files)
            dir.write(name, traceOfSize(1));
        std::vector<std::string> arguments;
        for (const std::string& argument : c.arguments)
            arguments.push_back(withDirectory(argument, dir.str()));
        const ToolRun run = runTool(c.command, arguments);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_EQ("", run.out);
        for (const std::string& message : c.messages)
            EXPECT_NE(std::string::npos, run.err.find(withDirectory(message, dir.str()))) << run.err;
    }
}

TEST(ArgumentParserTest, NumbersAreWholeDecimalOrHex) {
    const std::uint64_t kMax = ~std::uint64_t(0);
    const std::vector<std::pair<const char*, std::uint64_t>> good = {
        {"0", 0}, {"4711", 4711}, {"0x1F", 31}, {"0XfF", 255}, {"18446744073709551615", kMax},
        {"0xffffffffffffffff", kMax}};
    for (const auto& c : good) {
        std::uint64_t value = 12345;
        EXPECT_TRUE(korvane_tool::parseNumber(c.first, value)) << c.first;
        EXPECT_EQ(c.second, value) << c.first;
    }
    for (const char* bad : {"18446744073709551616", "0x", "", "-1", " 1", "12ab", "0x1g", "+5"}) {
        std::uint64_t value = 12345;
        EXPECT_FALSE(korvane_tool::parseNumber(bad, value)) << bad;
        EXPECT_EQ(12345u, value) << bad;
    }
}

TEST(SampleFileTest, ReadsGoodLinesAndNamesBadOnes) {
    struct Case {
        std::string content;
        std::size_t samples;
        std::string message; // empty when all lines are good
    };
    const std::vector<Case> cases = {
        {"", 0, ""},
        {"# samples\r\ntimestamp, ip, pid, host\r\n\r\n1,0x2,3,h\r\n# end\n", 1, ""},
        {"1,2,3,h\n", 0, "s.csv:1: the first line must be the header"},
        {"timestamp,ip,pid,host\n1,2,3\n4,5,6,h\n", 1, "s.csv:2: expected 4 columns"},
        {"timestamp,ip,pid,host\n1,2,4294967296,h\n", 0, "pid '4294967296'"},
        {"timestamp,ip,pid,host\n1,2,3,\n", 0, "s.csv:2: host is empty"},
        {"timestamp,ip,pid,host\n-1,2,3,h\n", 0, "timestamp '-1' is no number"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.content);
        std::istringstream in(c.content);
        std::ostringstream err;
        std::vector<korvane_tool::Sample> samples;
        EXPECT_EQ(c.message.empty(), korvane_tool::SampleFile::read(in, "s.csv", samples, err));
        EXPECT_EQ(c.samples, samples.size());
        EXPECT_TRUE(c.message.empty() ? err.str().empty() : err.str().find(c.message) != std::string::npos)
            << err.str();
    }
}

TEST(TextOutputTest, QuotesCsvAndEscapesJson) {
    EXPECT_EQ("plain", korvane_tool::csvField("plain"));
    EXPECT_EQ("\"say \"\"hi\"\"\"", korvane_tool::csvField("say \"hi\""));
    EXPECT_EQ("\"two\nlines\"", korvane_tool::csvField("two\nlines"));
    EXPECT_EQ("\"a\\\"b\\\\c\\n\\u0001\"", korvane_tool::jsonString(std::string("a\"b\\c\n\x01", 7)));
    EXPECT_EQ("0x0", korvane_tool::hexText(0));
}

} // namespace
