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
    converter.initialize(jitRvas, std::vector<u32_t>(jitRvas.size(), 5), addresses);
    return converter;
}

// A missing value stops the search next to where it would be, and never
// outside the table; an empty table finds nothing.
TEST(JitIdConverterTest, SearchStopsNextToValuesThatAreMissing) {
    const std::vector<u64_t> five = {10, 20, 30, 40, 50};
    // Wanted value, then the index found in `five`.
    const std::vector<std::pair<u64_t, u32_t>> inFive = {{30, 2}, {10, 0}, {50, 4}, {20, 1}, {40, 3},
                                                         {35, 2}, {55, 4}, {15, 1}, {1, 0}};
    for (const auto& c : inFive) {
        u32_t index = 77;
        EXPECT_EQ(meSuccess, converterOver(five).findJitRva(c.first, index)) << c.first;
        EXPECT_EQ(c.second, index) << c.first;
    }
    for (const std::vector<u64_t>& table : {std::vector<u64_t>{10}, std::vector<u64_t>{10, 20}}) {
        for (u64_t wanted : {u64_t(0), u64_t(10), u64_t(25)}) {
            u32_t index = 77;
            EXPECT_EQ(meSuccess, converterOver(table).findJitRva(wanted, index));
            EXPECT_EQ(wanted < 20 ? 0u : table.size() - 1, index) << wanted << " in " << table.size();
        }
    }
    u32_t index = 77;
    EXPECT_EQ(meNotFound, JitIdConverter().findJitRva(10, index));
    EXPECT_EQ(77u, index);
}

// Jit ids count from the file's first region, which must lie in the file's range.
TEST(JitIdConverterTest, JitIdsCountFromTheFilesFirstRegion) {
    const JitIdConverter converter = converterOver({10, 20, 30, 40, 50});
    struct Case {
        u32_t jitId;
        u64_t address;
        u64_t fileStart;
        u64_t fileEnd;
        u64_t jitRva; // 0 when not found
    };
    const std::vector<Case> cases = {
        {1, 0x3000, 30, 100, 30}, {2, 0x4004, 30, 100, 44}, {1, 0x3005, 30, 100, 0}, {1, 0x2fff, 30, 100, 0},
        {3, 0x5000, 30, 100, 50}, {4, 0x6000, 30, 100, 0},  {2, 0x4000, 30, 40, 0},  {1, 0x1000, 10, 11, 10},
        // A start between entries counts from where the search stops.
        {1, 0x2000, 25, 100, 20},
        // A zero id and one whose sum with the index wraps name no entry.
        {0, 0x3000, 30, 100, 0},  {0xffffffffu, 0x3000, 30, 100, 0},
    };
    // Noting file starts ahead, some of them twice or missing from the table, changes no answer.
    JitIdConverter noted = converter;
    noted.noteFileStarts({30, 10, 25, 30, 5, 60, 11});
    const std::vector<const JitIdConverter*> subjects = {&converter, &noted};
    for (const JitIdConverter* subject : subjects)
        for (const Case& c : cases) {
            SCOPED_TRACE(::testing::Message() << "jit id " << c.jitId << " at " << std::hex << c.address
                                              << (subject == &noted ? " noted" : ""));
            u64_t jitRva = 0;
            const korvane_error_t result = subject->convert(c.jitId, c.address, c.fileStart, c.fileEnd, jitRva);
            EXPECT_EQ(c.jitRva ? meSuccess : meNotFound, result);
            EXPECT_EQ(c.jitRva, jitRva);
        }
    u64_t untouched = 9;
    EXPECT_EQ(meNotFound, JitIdConverter().convert(1, 0x1000, 10, 100, untouched));
    // Entries past the lengths or addresses given hold no address, not even address 0.
    JitIdConverter shortLengths;
    shortLengths.initialize({10, 20, 30}, {5}, {0x1000, 0x2000});
    for (const u64_t address : {u64_t(0), u64_t(0x2000), u64_t(0x2001)})
        for (const u32_t jitId : {2u, 3u})
            EXPECT_EQ(meNotFound, shortLengths.convert(jitId, address, 10, 100, untouched)) << jitId << " " << address;
    EXPECT_EQ(9u, untouched);
    EXPECT_EQ(meSuccess, shortLengths.convert(1, 0x1001, 10, 100, untouched));
    EXPECT_EQ(11u, untouched);
}

} // namespace
