// korvane-jit processes, and the tool's handling of arguments, sample files and output texts.
#include "argument_parser.h"
#include "sample_file.h"
#include "text_output.h"
#include "tool_runner.h"

#include "test_support.h"

#include <gtest/gtest.h>

namespace {

using korvane_test::runTool;
using korvane_test::TempDir;
using korvane_test::ToolRun;
using korvane_tracewriter::TraceWriter;

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

TEST(ArgumentParserTest, SplitsOptionsFlagsAndPositionals) {
    korvane_tool::ArgumentParser parser({"--arch", "--rva"}, {"--json"});
    std::ostringstream err;
    ASSERT_TRUE(parser.parse({"a", "--arch", "32", "--json", "--rva=0x10", "--", "--not-an-option"}, err));
    EXPECT_EQ((std::vector<std::string>{"a", "--not-an-option"}), parser.positional());
    EXPECT_EQ("32", parser.value("--arch"));
    EXPECT_EQ("0x10", parser.value("--rva"));
    EXPECT_TRUE(parser.has("--json"));
    EXPECT_EQ("dflt", parser.value("--method", "dflt"));
    EXPECT_FALSE(korvane_tool::ArgumentParser({"--arch"}, {}).parse({"--arch"}, err));
    EXPECT_FALSE(korvane_tool::ArgumentParser({}, {"--json"}).parse({"--json=1"}, err));
    EXPECT_NE(std::string::npos, err.str().find("option '--arch' needs a value"));
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
