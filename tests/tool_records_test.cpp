// korvane-jit records on real trace files: the listing, refused records, and where framing breaks.
#include "tool_runner.h"
#include "trace_decoding_support.h"

#include <gtest/gtest.h>

namespace {

using namespace korvane_test;

// The text after the first line, which names the temporary file.
std::string afterFirstLine(const std::string& text) { return text.substr(text.find('\n') + 1); }

std::string lastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of('\n');
    const std::size_t start = text.rfind('\n', end);
    return text.substr(start + 1, end - start);
}

// The update finds the code of the load listed before it and takes a range as long as that region.
TEST(ToolRecordsTest, ListsEachRecordWithWhatTheDecoderMadeOfIt) {
    TempDir dir;
    const std::string path = dir.write("host.4711.jit", TraceWriter()
                                                            .magic()
                                                            .collectorType(1)
                                                            .loadV3(richLoadRecord())
                                                            .inlineLoad(richInlineRecord())
                                                            .updateV2(richUpdateRecord()));
    const ToolRun run = runTool("records", {path});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("trace " + path + ", 430 bytes, process 4711, jit RVAs from 0x1, code bytes kept",
              run.out.substr(0, run.out.find('\n')));
    EXPECT_EQ("@0  Magic  value 0x4a495431\n"
              "@0x8  CollectorType  value 0x1 (JIT profiler)\n"
              "@0x10  FunctionLoad64_v3  223 payload bytes\n"
              "    method   ui::Widget::draw(int)\n"
              "             raw id 0x4d, token 0x6000012, load time 0x5000, jit RVA 0x1\n"
              "    class    ui::Widget\n"
              "    module   /opt/app/lib/app.so  (xa64, no real file)\n"
              "    source   Widget.cs\n"
              "    region 1  ip [0x7f0000001000, 0x7f0000001010)  jit RVA [0x1, 0x11)  16 code bytes\n"
              "    region 2  ip [0x7f0000002000, 0x7f0000002008)  jit RVA [0x11, 0x19)  4 code bytes\n"
              "    lines    for jit RVA [0x1, 0x11): managed to source 2, native to managed 2, native to source 2\n"
              "@0xf7  FunctionInlineLoad64  126 payload bytes\n"
              "    method   geo::Point::length()\n"
              "             raw id 0x5b, raw parent id 0x4d, token 0, load time 0x5100, jit RVA 0\n"
              "    class    geo::Point\n"
              "    module   /opt/app/lib/app.so  (xa64, no real file)\n"
              "    source   Point.cs\n"
              "    region 1  ip [0x7f0000001008, 0x7f0000001010)  jit RVA [0, 0x8)  8 code bytes\n"
              "    lines    for jit RVA [0, 0x8): managed to source 0, native to managed 0, native to source 2\n"
              "@0x17d  FunctionUpdate_v2  41 payload bytes\n"
              "    method   (no name)\n"
              "             raw id 0x4d, token 0, load time 0x6000, jit RVA 0x19\n"
              "    module   [Dynamic code]  (xa64, no real file)\n"
              "    region 1  ip [0x7f0000001000, 0x7f0000001010)  jit RVA [0x19, 0x29)  16 code bytes\n"
              "5 records: 3 decoded, 0 refused by the decoder\n"
              "end of file; the records took jit RVAs [0x1, 0x29)\n",
              afterFirstLine(run.out));
}

TEST(ToolRecordsTest, RefusedRecordsAndModulesOnlyAreShown) {
    TempDir dir;
    korvane_tracewriter::LoadRecord empty = richLoadRecord();
    empty.ranges[0].length = 0;
    empty.ranges[1].length = 0;
    const std::string path = dir.write("host.1.jit", TraceWriter().loadV0(empty).loadV0(richLoadRecord()));
    const ToolRun run = runTool("records", {path, "--modules-only", "--start-rva", "0x100"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("@0  FunctionLoad64  212 payload bytes\n"
              "    refused by the decoder; the reader skips this record\n"
              "@0xdc  FunctionLoad64  212 payload bytes\n"
              "    method   (no name)\n"
              "             raw id 0, token 0x6000012, load time 0x5000, jit RVA 0x100\n"
              "    module   /opt/app/lib/app.so  (xa64, a real file)\n"
              "    region 1  ip [0x7f0000001000, 0x7f0000001010)  jit RVA [0x100, 0x110)  no code bytes kept\n"
              "    region 2  ip [0x7f0000002000, 0x7f0000002008)  jit RVA [0x110, 0x118)  no code bytes kept\n"
              "2 records: 1 decoded, 1 refused by the decoder\n"
              "end of file; the records took jit RVAs [0x100, 0x118)\n",
              afterFirstLine(run.out));
    EXPECT_NE(std::string::npos, run.out.find("process 1, jit RVAs from 0x100, modules only\n"));
}

TEST(ToolRecordsTest, AFramingFailureEndsTheListingWithItsCodeAndOffset) {
    TempDir dir;
    const std::pair<TraceWriter, std::string> cases[] = {
        {TraceWriter().magic().loadV2(richLoadRecord()).cutOff(3),
         "stopped at 0x8: meMalformedRecord in a FunctionLoad64_v2 record;"},
        {TraceWriter().magic().collectorType(2).sized(15, {1}),
         "stopped at 0x10: meMalformedRecord in a record of unknown type 0xf;"},
    };
    for (const auto& broken : cases) {
        const ToolRun run = runTool("records", {dir.write("broken.1.jit", broken.first)});
        EXPECT_EQ(1, run.exitCode);
        EXPECT_EQ(0u, lastLine(run.out).find(broken.second)) << run.out;
    }
    const ToolRun missing = runTool("records", {dir.file("gone.1.jit")});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_EQ("stopped at 0: meFileNotOpen, the file could not be opened", lastLine(missing.out));
}

} // namespace
