// The block index answers as a binary search of the whole array does, at every size its levels change.
#include "jitreader/block_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using korvane_3_10::BlockIndex;
using korvane_3_10::u64_t;

std::size_t searched(const std::vector<u64_t>& values, u64_t point) {
    const auto after = std::upper_bound(values.begin(), values.end(), point);
    return after == values.begin() ? BlockIndex::npos : static_cast<std::size_t>(after - values.begin()) - 1;
}

TEST(BlockIndexTest, FindsWhatABinarySearchFinds) {
    std::mt19937_64 random(7);
    for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 255u, 256u, 257u, 4097u, 70000u}) {
        std::vector<u64_t> values;
        BlockIndex index;
        u64_t value = 100;
        for (std::size_t position = 0; position < size; ++position) {
            // Steps of 0 too: equal neighbours, as a table of converted ids may hold.
            value += random() % 5;
            values.push_back(value);
            index.add(position, value);
        }
        std::vector<u64_t> points = {0, 99, 100, value, value + 1, ~u64_t(0)};
        for (int probe = 0; probe < 2000; ++probe)
            points.push_back(100 + random() % (value + 10));
        for (const u64_t point : points)
            ASSERT_EQ(searched(values, point), index.lastAtOrBelow(values, point)) << size << " " << point;
    }
}

} // namespace
