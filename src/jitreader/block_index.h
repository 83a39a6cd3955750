// Every sixteenth value of an ascending array, so that a search of the array ends in one block.
#ifndef KORVANE_JITREADER_BLOCK_INDEX_H
#define KORVANE_JITREADER_BLOCK_INDEX_H

#include <korvane/types.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace korvane_3_10 {

// The block starts are small enough to stay in the cache, so a search costs
// one miss in the array itself rather than one per step of a binary search.
class BlockIndex {
public:
    static constexpr std::size_t npos = ~std::size_t(0);

    void clear() { m_blockStarts.clear(); }
    // Called for each value as it is appended at its position in the array.
    void add(std::size_t position, u64_t value) {
        if (position % kBlock == 0)
            m_blockStarts.push_back(value);
    }
    // The position of the last value of the ascending array at or below the
    // point; npos when the point lies below them all or nothing was added.
    std::size_t lastAtOrBelow(const std::vector<u64_t>& values, u64_t point) const {
        const auto block = std::upper_bound(m_blockStarts.begin(), m_blockStarts.end(), point);
        if (block == m_blockStarts.begin())
            return npos;
        const std::size_t first = static_cast<std::size_t>(block - m_blockStarts.begin() - 1) * kBlock;
        const auto begin = values.begin() + static_cast<std::ptrdiff_t>(first);
        const auto end = values.begin() + static_cast<std::ptrdiff_t>(std::min(first + kBlock, values.size()));
        return static_cast<std::size_t>(std::upper_bound(begin, end, point) - values.begin()) - 1;
    }

private:
    static constexpr std::size_t kBlock = 16;

    std::vector<u64_t> m_blockStarts;
};

} // namespace korvane_3_10

#endif
