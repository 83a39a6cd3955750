// korvane-jit on hostile input files: what is no regular file, endless lines,
// CSV quoting, bytes that are not UTF-8, and sample files without samples.
#include "command_registry.h"
#include "text_output.h"

#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using korvane_test::TempDir;

const std::uint64_t kBase = 0x7f0000001000;
const char kHeader[] = "timestamp,ip,pid,host\n";

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;
    bool blocked = false;
};

ToolRun runTool(const std::string& name, const std::vector<std::string>& args) {
    ToolRun run;
    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        if (command.name != name)
            continue;
        std::ostringstream out;
        std::ostringstream err;
        run.exitCode = command.run(args, out, err);
        run.out = out.str();
        run.err = err.str();
    }
    return run;
}

// Runs a command on a FIFO. Should it block in open(), a writer opening the
// FIFO after a while releases it, and the run is marked as blocked.
ToolRun runBesideFifo(const std::string& name, const std::vector<std::string>& args, const std::string& fifo) {
    std::future<ToolRun> running = std::async(std::launch::async, [&] { return runTool(name, args); });
    if (running.wait_for(std::chrono::seconds(5)) == std::future_status::ready)
        return running.get();
    ::close(::open(fifo.c_str(), O_WRONLY));
    ToolRun run = running.get();
    run.blocked = true;
    return run;
}

class ToolInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_traces.write("shop.42.jit", korvane_test::profilerTrace().loadV3(korvane_test::methodAt(1, kBase, 0x40, 100, "work")));
    }

    ToolRun resolve(const std::string& samples, const std::vector<std::string>& options = {}) const {
        const std::string path = m_inputs.file("samples.csv");
        std::ofstream(path, std::ios::binary) << samples;
        std::vector<std::string> args = {m_traces.str(), "--samples", path};
        args.insert(args.end(), options.begin(), options.end());
        return runTool("resolve", args);
    }

    TempDir m_traces;
    TempDir m_inputs;
};

TEST_F(ToolInputTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
    const std::string fifo = m_inputs.file("pipe.jit");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const std::string socket = m_inputs.file("socket.jit");
    ASSERT_TRUE(korvane_test::makeSocket(socket));
    const std::vector<std::pair<std::string, std::string>> inputs = {
        {fifo, "is a FIFO"}, {socket, "is a socket"}, {m_inputs.str(), "is a directory"}, {"/dev/null", "is a device"}};
    for (const auto& input : inputs) {
        for (const std::vector<std::string>& args :
             {std::vector<std::string>{m_traces.str(), "--samples", input.first}, {input.first}}) {
            const std::string command = args.size() == 1 ? "records" : "resolve";
            const ToolRun run = runBesideFifo(command, args, fifo);
            EXPECT_FALSE(run.blocked) << command << " " << input.first;
            EXPECT_EQ(1, run.exitCode) << command << " " << input.first;
            EXPECT_NE(std::string::npos, run.err.find(input.first + ": " + input.second)) << run.err;
            EXPECT_EQ("", run.out) << command << " " << input.first;
        }
    }
}

TEST_F(ToolInputTest, SampleFileContents) {
    const std::string longLine(70000, '7');
    const std::string sample = "200,0x7f0000001010,42,";
    const struct {
        std::string samples;
        std::vector<std::string> options;
        int exitCode;
        std::string outPart;
        std::string errPart;
    } cases[] = {
        {"", {}, 1, "", "samples.csv: no samples\n"},
        {kHeader, {}, 1, "", "samples.csv: no samples\n"},
        {std::string(kHeader) + sample + "\"shop\"\r\n", {}, 0, ",42,shop,jit,0x11,", ""},
        {std::string(kHeader) + sample + " \"sh\"\"op\" \n", {}, 0, ",42,\"sh\"\"op\",outside JIT code,", ""},
        {std::string(kHeader) + sample + "\"sh\nop\"\nbad\n" + sample + "shop", {}, 1, ",42,shop,jit,",
         "samples.csv:4: expected 4 columns"},
        {std::string(kHeader) + sample + "\"shop", {}, 1, "", "samples.csv:2: the quoted field 4 is not closed"},
        {std::string(kHeader) + sample + "\"shop\"x\n", {}, 1, "", "samples.csv:2: text after the closing quote"},
        {std::string(kHeader) + longLine, {}, 1, "", "samples.csv:2: longer than 65536 bytes; line skipped\n"},
        {std::string(kHeader) + "1,\"" + longLine + "\n" + sample + "shop", {}, 1, ",42,shop,jit,",
         "samples.csv:2: longer than 65536 bytes; line skipped\n"},
        {std::string(kHeader) + "1," + std::string(1000, 'x') + ",42,shop\n", {}, 1, "",
         "samples.csv:2: ip '" + std::string(40, 'x') + "...' is no number; line skipped\n"},
        {std::string(kHeader) + sample + "sh\xffop\xe2\x82\n", {"--json"}, 0, "\"host\":\"sh\\ufffdop\\ufffd\\ufffd\"",
         ""},
    };
    for (const auto& c : cases) {
        const ToolRun run = resolve(c.samples, c.options);
        const std::string shown = c.samples.substr(0, 80);
        EXPECT_EQ(c.exitCode, run.exitCode) << shown << "\n" << run.err;
        EXPECT_NE(std::string::npos, run.out.find(c.outPart)) << shown << "\n" << run.out;
        EXPECT_NE(std::string::npos, run.err.find(c.errPart)) << shown << "\n" << run.err;
        EXPECT_LT(run.err.size(), 200u) << shown;
    }
}

TEST(ToolTextTest, JsonStringsAreValidUtf8) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"K\xc3\xa4se \xe2\x82\xac \xf0\x9f\x98\x80", "\"K\xc3\xa4se \xe2\x82\xac \xf0\x9f\x98\x80\""},
        {"a\"b\\c\n\x01", "\"a\\\"b\\\\c\\n\\u0001\""},
        {"\xc0\x80", "\"\\ufffd\\ufffd\""},         // overlong NUL
        {"\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""}, // surrogate
        {"\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""}, // above U+10FFFF
        {"\xe2\x82", "\"\\ufffd\\ufffd\""},           // cut short at the end
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, korvane_tool::jsonString(c.first)) << c.first;
}

} // namespace
