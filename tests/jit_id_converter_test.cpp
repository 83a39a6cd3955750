// The jit id converter's search and conversion over hand-made snapshots.
#include "jitreader/jit_id_converter.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace korvane_3_10;

// Regions of length 5 at addresses 0x1000, 0x2000, ... behind the given jit RVAs.
JitIdConverter converterOver(const std::vector<u64_t>& jitRvas) {
    std::vector<u64_t> addresses;
    for (std::size_t i = 0; i < jitRvas.size(); ++i)
        addresses.push_back(0x1000 * (i + 1));
    JitIdConverter converter;
    converter.initialize(jitRvas, std::vector<u64_t>(jitRvas.size(), 5), addresses);
    return converter;
}

TEST(JitIdConverterTest, SearchStopsNextToValuesThatAreMissing) {
    struct Case {
        std::vector<u64_t> table;
        u64_t wanted;
        u32_t index;
    };
    const std::vector<u64_t> five = {10, 20, 30, 40, 50};
    const std::vector<Case> cases = {
        {{10}, 10, 0},  {{10}, 3, 0},   {{10}, 99, 0},  {five, 30, 2}, {five, 10, 0}, {five, 50, 4},
        {five, 20, 1},  {five, 40, 3},  {five, 35, 2},  {five, 55, 4}, {five, 15, 1}, {{10, 20}, 20, 1},
        {{10, 20}, 25, 1},
        // Below the first entry the search must stay inside the table.
        {five, 1, 0},   {{10, 20}, 5, 0}, {{10, 20, 30}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "wanted " << c.wanted << " in " << c.table.size());
        u32_t index = 77;
        EXPECT_EQ(meSuccess, converterOver(c.table).findJitRva(c.wanted, index));
        EXPECT_EQ(c.index, index);
    }
    u32_t index = 77;
    EXPECT_EQ(meNotFound, JitIdConverter().findJitRva(10, index));
    EXPECT_EQ(77u, index);
}

TEST(JitIdConverterTest, JitIdsCountFromTheFilesFirstRegion) {
    const JitIdConverter converter = converterOver({10, 20, 30, 40, 50});
    struct Case {
        u32_t jitId;
        u64_t address;
        u64_t fileStart;
        u64_t fileEnd;
        korvane_error_t result;
        u64_t jitRva;
    };
    const std::vector<Case> cases = {
        {1, 0x3000, 30, 100, meSuccess, 30},
        {2, 0x4004, 30, 100, meSuccess, 44},
        {1, 0x3005, 30, 100, meNotFound, 0},
        {1, 0x2fff, 30, 100, meNotFound, 0},
        {3, 0x5000, 30, 100, meSuccess, 50},
        {4, 0x6000, 30, 100, meNotFound, 0},
        {2, 0x4000, 30, 40, meNotFound, 0},
        {1, 0x1000, 10, 11, meSuccess, 10},
        // A zero id and one whose sum with the index wraps name no entry.
        {0, 0x3000, 30, 100, meNotFound, 0},
        {0xffffffffu, 0x3000, 30, 100, meNotFound, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "jit id " << c.jitId << " at " << std::hex << c.address);
        u64_t jitRva = 0;
        EXPECT_EQ(c.result, converter.convert(c.jitId, c.address, c.fileStart, c.fileEnd, jitRva));
        EXPECT_EQ(c.jitRva, jitRva);
    }
    u64_t untouched = 9;
    EXPECT_EQ(meNotFound, JitIdConverter().convert(1, 0x1000, 10, 100, untouched));
    EXPECT_EQ(9u, untouched);
}

} // namespace
