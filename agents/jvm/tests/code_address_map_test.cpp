// The load times the agent chooses for code at new and at reused addresses.
#include "code_address_map.h"

#include <gtest/gtest.h>

namespace {

using korvane_jvmagent::CodeAddressMap;

const std::uint64_t kFloor = 100;
const std::uint64_t kMethod = 1, kOther = 2;

struct Step {
    enum { load, unload } kind;
    std::uint64_t start, length, identity, now;
    std::uint64_t expectedLoadTime;
};

struct Case {
    const char* name;
    std::vector<Step> steps;
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

class CodeAddressMapTest : public ::testing::TestWithParam<Case> {};

TEST_P(CodeAddressMapTest, ChoosesLoadTimes) {
    CodeAddressMap map(kFloor);
    for (const Step& step : GetParam().steps) {
        if (step.kind == Step::unload)
            map.unload(step.start, step.identity, step.now);
        else
            EXPECT_EQ(step.expectedLoadTime, map.load(step.start, step.length, step.identity, step.now))
                << "code at " << step.start;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CodeAddressMapTest,
    ::testing::Values(
        Case{"NewAddressesGoBackToTheFloor", {{Step::load, 0x1000, 0x40, kMethod, 500, kFloor}}},
        Case{"ReusedAddressesStartAtTheUnload",
             {{Step::load, 0x1000, 0x40, kMethod, 500, kFloor},
              {Step::unload, 0x1000, 0, kMethod, 700, 0},
              {Step::load, 0x1020, 0x40, kOther, 900, 700}}},
        Case{"CodeReplacedWithoutUnloadStartsAtItsArrival",
             {{Step::load, 0x1000, 0x40, kMethod, 500, kFloor},
              {Step::unload, 0x1000, 0, kOther, 600, 0},
              {Step::load, 0x1000, 0x40, kOther, 900, 900}}},
        Case{"WhatNewCodeLeavesOfOldCodeStillCounts",
             {{Step::load, 0x1000, 0x100, kMethod, 500, kFloor},
              {Step::unload, 0x1000, 0, kMethod, 700, 0},
              {Step::load, 0x1040, 0x40, kOther, 900, 700},
              {Step::load, 0x10c0, 0x20, kOther, 950, 700},
              {Step::load, 0x1100, 0x20, kOther, 990, kFloor}}}),
    [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });

TEST(CodeAddressMapLiveTest, TheSameCodeReportedTwiceIsLive) {
    CodeAddressMap map(kFloor);
    map.load(0x1000, 0x40, kMethod, 500);
    EXPECT_TRUE(map.isLive(0x1000, 0x40, kMethod));
    EXPECT_FALSE(map.isLive(0x1000, 0x40, kOther));
    EXPECT_FALSE(map.isLive(0x1000, 0x30, kMethod));
    map.unload(0x1000, kMethod, 600);
    EXPECT_FALSE(map.isLive(0x1000, 0x40, kMethod));
}

} // namespace
