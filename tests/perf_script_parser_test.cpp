// The perf script reader on the line forms perf prints, fed whole and cut anywhere.
#include "report/perf_script_parser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using korvane_report::PerfSampleHead;
using korvane_report::PerfScriptParser;

// Each sample as one text: "pid/tid time period|- ip:text ip:text".
class Recorder : public korvane_report::PerfSampleSink {
public:
    void sample(const PerfSampleHead& head, const std::vector<korvane_report::PerfFrame>& frames) override {
        std::ostringstream text;
        text << head.pid << "/" << head.tid << " " << head.time << " "
             << (head.hasPeriod ? std::to_string(head.period) : "-");
        for (const korvane_report::PerfFrame& frame : frames)
            text << " " << std::hex << frame.ip << std::dec << ":" << frame.text;
        samples.push_back(text.str());
    }

    std::vector<std::string> samples;
};

struct Case {
    const char* name;
    std::string text;
    std::vector<std::string> samples;
};

class PerfScriptParserTest : public ::testing::TestWithParam<Case> {};

TEST_P(PerfScriptParserTest, ReadsEverySampleWhetherFedWholeOrCut) {
    Recorder whole;
    PerfScriptParser parser(whole, true);
    parser.feed(GetParam().text);
    parser.finish();
    EXPECT_EQ(parser.badLines(), 0u) << parser.firstBadText();
    EXPECT_EQ(whole.samples, GetParam().samples);

    Recorder cut;
    PerfScriptParser pieces(cut, true);
    for (char c : GetParam().text)
        pieces.feed(std::string_view(&c, 1));
    pieces.finish();
    EXPECT_EQ(cut.samples, GetParam().samples);
}

INSTANTIATE_TEST_SUITE_P(
    LineForms, PerfScriptParserTest,
    ::testing::Values(
        Case{"FlatMicroseconds",
             " 7554/7554    332.929973:  ffffffff8158c1b5 next_uptodate_folio ([kernel.kallsyms])\n"
             " 7554/7555    332.930212:      7ff7ba86c69e handle_amd (/usr/lib/ld.so)\n",
             {"7554/7554 332929973000 - ffffffff8158c1b5:next_uptodate_folio ([kernel.kallsyms])",
              "7554/7555 332930212000 - 7ff7ba86c69e:handle_amd (/usr/lib/ld.so)"}},
        Case{"FlatNanosecondsWithPeriod",
             " 7554/7554    332.929973461:     250000  ffffffff8158c1b5 next_uptodate_folio ([kernel.kallsyms])\n",
             {"7554/7554 332929973461 250000 ffffffff8158c1b5:next_uptodate_folio ([kernel.kallsyms])"}},
        Case{"CallChainsWithPeriodAndBlanksInSymbols",
             " 7852/7852    353.931438:     250000 \n"
             "\t            1180 leaf (/tmp/rp/jitspin)\n"
             "\t    7f5512c94006 [unknown] (/tmp/perf-7852.map)\n"
             "\t           2724a operator new(unsigned long) (/usr/lib/libstdc++.so.6)\n\n"
             " 7852/7852    353.931685:     250000 \n"
             "\t    7f5512c94047 [unknown] (/tmp/perf-7852.map)\n",
             {"7852/7852 353931438000 250000 1180:leaf (/tmp/rp/jitspin) 7f5512c94006:[unknown] "
              "(/tmp/perf-7852.map) 2724a:operator new(unsigned long) (/usr/lib/libstdc++.so.6)",
              "7852/7852 353931685000 250000 7f5512c94047:[unknown] (/tmp/perf-7852.map)"}},
        Case{"CallChainsWithoutPeriodWithCommAndHeader",
             "# ========\n# captured on    : Mon Nov 23 15:34:35 2026\n"
             "java thread 4711/4712 0.001500000: \r\n\t7f3a1c001015 [unknown] ([unknown])\r\n",
             {"4711/4712 1500000 - 7f3a1c001015:[unknown] ([unknown])"}},
        Case{"AddressPaddingOfAnyWidth",
             " 1/1 1.000001: 1\n\t        7f00 a (b)\n\t                7f01 c (d)\n\t \t 7f02 e (f)\n"
             "\t7f03 g (h)\n\t       7f04 i (j)\n",
             {"1/1 1000001000 1 7f00:a (b) 7f01:c (d) 7f02:e (f) 7f03:g (h) 7f04:i (j)"}},
        // perf's sixteen columns, whose addresses are read eight digits at a time, and
        // forms that only look like them.
        Case{"SixteenColumnAddresses",
             " 1/1 1.000001: 1\n\tffffffff8158c1b5 k ([kernel.kallsyms])\n\t               0 [unknown] ([unknown])\n"
             "\t    7F5512C94006 upper (x)\n\t       12 345678 s (x)\n\t0123456789abcdef  wide (x)\n",
             {"1/1 1000001000 1 ffffffff8158c1b5:k ([kernel.kallsyms]) 0:[unknown] ([unknown]) "
              "7f5512c94006:upper (x) 12:345678 s (x) 123456789abcdef:wide (x)"}},
        Case{"NumberLikeSymbolsAfterThePeriodIsSettled",
             " 1/1 1.000001:  7f00 add one (/bin/x)\n 1/1 1.000002: 250 401000 (/bin/x)\n",
             {"1/1 1000001000 - 7f00:add one (/bin/x)", "1/1 1000002000 - 250:401000 (/bin/x)"}}),
    [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });

struct BadCase {
    const char* name;
    std::string text;
    std::size_t samples;
    std::uint64_t badLines;
    std::uint64_t firstBadLine;
};

class PerfScriptBadInputTest : public ::testing::TestWithParam<BadCase> {};

TEST_P(PerfScriptBadInputTest, CountsBadLinesAndReadsTheRest) {
    Recorder lenient;
    PerfScriptParser parser(lenient, false);
    std::istringstream in(GetParam().text);
    EXPECT_TRUE(parser.read(in));
    EXPECT_EQ(lenient.samples.size(), GetParam().samples);
    EXPECT_EQ(parser.badLines(), GetParam().badLines);
    EXPECT_EQ(parser.firstBadLine(), GetParam().firstBadLine);

    Recorder strict;
    PerfScriptParser stopping(strict, true);
    std::istringstream again(GetParam().text);
    EXPECT_EQ(stopping.read(again), GetParam().badLines == 0);
    EXPECT_EQ(stopping.badLines(), GetParam().badLines ? 1u : 0u);
}

const char kGood[] = " 1/1 0.001500: 250000\n\t7f3a1c001014 [unknown] ([unknown])\n\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, PerfScriptBadInputTest,
    ::testing::Values(BadCase{"Empty", "", 0, 0, 0},
                      BadCase{"Garbage", std::string("garbage here\n") + kGood + "\x01\x02\n", 1, 2, 1},
                      BadCase{"FrameOutsideASample", std::string("\t7f00 x (y)\n") + kGood, 1, 1, 1},
                      BadCase{"FrameWithoutAddress", std::string(kGood, 22) + "\tnothex x (y)\n\t7f00 a (b)\n", 1, 1,
                              2},
                      BadCase{"FramePaddingAlone", std::string(kGood, 22) + "\t                \n\t7f00 a (b)\n", 1,
                              1, 2},
                      BadCase{"AbsurdTime",
                              std::string(" 1/1 99999999999999999999.000001: 1\n\t7f00 a (b)\n\n") + kGood, 1, 2, 1},
                      BadCase{"PidBeyond32Bits", std::string(" 4294967296/1 1.000001: 7f00 a (b)\n") + kGood, 1, 1, 1},
                      BadCase{"SampleWithoutFrames", std::string(" 1/1 0.001500: 250000\n\n") + kGood, 1, 1, 1},
                      BadCase{"TruncatedInTheLastFrame", std::string(kGood) + " 1/1 0.001600: 250000\n\t7f3a1c00", 2, 0,
                              0}),
    [](const ::testing::TestParamInfo<BadCase>& info) { return info.param.name; });

} // namespace
