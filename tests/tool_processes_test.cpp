// korvane-jit processes and the tool's argument handling, on real trace directories.
#include "argument_parser.h"
#include "tool_runner.h"

#include "test_support.h"

#include <gtest/gtest.h>

namespace {

using korvane_test::runTool;
using korvane_test::TempDir;
using korvane_test::ToolRun;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;

TraceWriter traceOfSize(std::size_t size) { return TraceWriter().raw(Bytes(size, 0)); }

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
}

TEST(ToolProcessesTest, EmptyDirectoryListsNothing) {
    TempDir dir;
    const ToolRun run = runTool("processes", {dir.str()});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ("0 hosts, 0 processes, 0 files, 0 bytes\n", run.out);
}

struct FailureCase {
    const char* title;
    std::vector<std::string> files;     // trace files to write
    std::vector<std::string> arguments; // "@" stands for the directory
    int exitCode;
    std::vector<std::string> messages;  // each must be in stderr; "@" stands for the directory
};

class ToolFailureTest : public ::testing::TestWithParam<FailureCase> {};

std::string withDirectory(std::string text, const std::string& directory) {
    for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + directory.size()))
        text.replace(at, 1, directory);
    return text;
}

TEST_P(ToolFailureTest, SaysWhatIsWrongAndWhere) {
    const FailureCase& expected = GetParam();
    TempDir dir;
    for (const std::string& name : expected.files)
        dir.write(name, traceOfSize(1));
    std::vector<std::string> arguments;
    for (const std::string& argument : expected.arguments)
        arguments.push_back(withDirectory(argument, dir.str()));
    const ToolRun run = runTool("processes", arguments);
    EXPECT_EQ(expected.exitCode, run.exitCode);
    EXPECT_EQ("", run.out);
    for (const std::string& message : expected.messages)
        EXPECT_NE(std::string::npos, run.err.find(withDirectory(message, dir.str()))) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Scans, ToolFailureTest,
    ::testing::Values(
        FailureCase{"MissingDirectory", {}, {"@/missing"}, 1, {"@/missing: no such directory"}},
        FailureCase{"FileForDirectory", {"h.1.jit"}, {"@/h.1.jit"}, 1, {"@/h.1.jit: is not a directory"}},
        FailureCase{"GoodAndMissing", {"h.1.jit"}, {"@", "@/zz"}, 1, {"@/zz: no such directory"}},
        FailureCase{"BadNames",
                    {"h.1.jit", "a.jit", "4711.jit"},
                    {"@"},
                    1,
                    {"@/a.jit: the file name does not say host and process", "@/4711.jit: the file name"}},
        FailureCase{"NoDirectory", {}, {}, 2, {"Usage: korvane-jit processes DIR..."}},
        FailureCase{"UnknownOption", {}, {"--frobnicate", "@"}, 2, {"unknown option '--frobnicate'"}}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return info.param.title; });

TEST(ToolProcessesTest, HelpGoesToStandardOutput) {
    const ToolRun run = runTool("processes", {"--help"});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ("Usage: korvane-jit processes DIR...\n", run.out);
}

TEST(ArgumentParserTest, SplitsOptionsFlagsAndPositionals) {
    korvane_tool::ArgumentParser parser({"--arch", "--rva"}, {"--json"});
    std::ostringstream err;
    ASSERT_TRUE(parser.parse({"a", "--arch", "32", "--json", "--rva=0x10", "--", "--not-an-option"}, err));
    EXPECT_EQ((std::vector<std::string>{"a", "--not-an-option"}), parser.positional());
    EXPECT_EQ("32", parser.value("--arch"));
    EXPECT_EQ("0x10", parser.value("--rva"));
    EXPECT_TRUE(parser.has("--json"));
    EXPECT_FALSE(parser.has("--help"));
    EXPECT_EQ("dflt", parser.value("--method", "dflt"));
}

TEST(ArgumentParserTest, RejectsUnknownOptionsAndMissingValues) {
    std::ostringstream err;
    EXPECT_FALSE(korvane_tool::ArgumentParser({"--arch"}, {}).parse({"--arch"}, err));
    EXPECT_FALSE(korvane_tool::ArgumentParser({}, {"--json"}).parse({"--json=1"}, err));
    EXPECT_FALSE(korvane_tool::ArgumentParser({}, {}).parse({"--x"}, err));
    EXPECT_NE(std::string::npos, err.str().find("'--arch' needs a value"));
}

struct NumberCase {
    const char* text;
    bool good;
    std::uint64_t value;
};

std::ostream& operator<<(std::ostream& out, const NumberCase& number) { return out << '"' << number.text << '"'; }

class ParseNumberTest : public ::testing::TestWithParam<NumberCase> {};

TEST_P(ParseNumberTest, ReadsDecimalAndHex) {
    std::uint64_t value = 12345;
    EXPECT_EQ(GetParam().good, korvane_tool::parseNumber(GetParam().text, value)) << GetParam().text;
    EXPECT_EQ(GetParam().value, value) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Texts, ParseNumberTest,
                         ::testing::Values(NumberCase{"0", true, 0}, NumberCase{"4711", true, 4711},
                                           NumberCase{"0x1F", true, 31}, NumberCase{"0XfF", true, 255},
                                           NumberCase{"18446744073709551615", true, 18446744073709551615ull},
                                           NumberCase{"0xffffffffffffffff", true, 18446744073709551615ull},
                                           NumberCase{"18446744073709551616", false, 12345},
                                           NumberCase{"0x", false, 12345}, NumberCase{"", false, 12345},
                                           NumberCase{"-1", false, 12345}, NumberCase{" 1", false, 12345},
                                           NumberCase{"12ab", false, 12345}, NumberCase{"0x1g", false, 12345},
                                           NumberCase{"+5", false, 12345}));

} // namespace
