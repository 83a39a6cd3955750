// Turns (jit id, address, file range) into a jit RVA over a snapshot of the regions.
#include "jitreader/jit_id_converter.h"

#include <algorithm>
#include <functional>

namespace korvane_3_10 {

void JitIdConverter::initialize(const std::vector<u64_t>& jitRvas, const std::vector<u32_t>& lengths,
                                const std::vector<u64_t>& addresses) {
    m_jitRvas = jitRvas;
    m_targets.clear();
    m_targets.reserve(jitRvas.size());
    for (std::size_t index = 0; index < jitRvas.size(); ++index) {
        const bool hasRange = index < lengths.size() && index < addresses.size();
        m_targets.push_back(Target{jitRvas[index], hasRange ? addresses[index] : 0, hasRange ? lengths[index] : 0});
    }
    m_blocks.clear();
    m_fileStartIndexes.reset(0);
    if (std::adjacent_find(jitRvas.begin(), jitRvas.end(), std::greater_equal<u64_t>()) != jitRvas.end())
        return;
    for (std::size_t index = 0; index < jitRvas.size(); ++index)
        m_blocks.add(index, jitRvas[index]);
}

bool JitIdConverter::findExactly(u64_t jitRva, u32_t& index) const {
    const std::size_t found = m_blocks.lastAtOrBelow(m_jitRvas, jitRva);
    if (found == BlockIndex::npos || m_jitRvas[found] != jitRva)
        return false;
    index = static_cast<u32_t>(found);
    return true;
}

korvane_error_t JitIdConverter::findJitRva(u64_t jitRva, u32_t& index) const {
    if (m_jitRvas.empty())
        return meNotFound;
    u64_t high = m_jitRvas.size() - 1;
    u64_t low = 0;
    u64_t middle = high / 2;
    while (high != 0) {
        const u64_t entry = m_jitRvas[middle];
        if (entry == jitRva)
            break;
        if (entry < jitRva) {
            low = middle + 1;
        } else {
            // Below the first entry the upper bound would fall under zero and
            // leave the table; the search stops at the first entry instead.
            if (middle == 0)
                break;
            high = middle - 1;
        }
        middle = (low + high) / 2;
        if (high <= low)
            break;
    }
    index = static_cast<u32_t>(middle);
    return meSuccess;
}

bool JitIdConverter::findFileStart(u64_t fileStart, u32_t& index) const {
    return findExactly(fileStart, index) || findJitRva(fileStart, index) == meSuccess;
}

void JitIdConverter::noteFileStarts(const std::vector<u64_t>& fileStarts) {
    m_fileStartIndexes.reset(fileStarts.size());
    for (const u64_t fileStart : fileStarts) {
        u32_t index = 0;
        if (findFileStart(fileStart, index))
            m_fileStartIndexes.add(fileStart, index);
    }
}

korvane_error_t JitIdConverter::convert(u32_t jitId, u64_t address, u64_t fileStart, u64_t fileEnd,
                                        u64_t& jitRva) const {
    u32_t index = 0;
    if (!m_fileStartIndexes.find(fileStart, index) && !findFileStart(fileStart, index))
        return meNotFound;
    // Jit ids count from 1; a sum that wraps to 0 names no entry.
    const u32_t position = jitId + index;
    if (position == 0 || position > m_jitRvas.size())
        return meNotFound;
    const Target& target = m_targets[position - 1];
    if (target.jitRva >= fileEnd)
        return meNotFound;
    if (target.address > address)
        return meNotFound;
    if (address - target.address >= target.length)
        return meNotFound;
    jitRva = address + target.jitRva - target.address;
    return meSuccess;
}

} // namespace korvane_3_10
