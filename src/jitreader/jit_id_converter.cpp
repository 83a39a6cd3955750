// Turns (jit id, address, file range) into a jit RVA over a snapshot of the regions.
#include "jitreader/jit_id_converter.h"

namespace korvane_3_10 {

void JitIdConverter::initialize(const std::vector<u64_t>& jitRvas, const std::vector<u64_t>& lengths,
                                const std::vector<u64_t>& addresses) {
    m_jitRvas = jitRvas;
    m_lengths = lengths;
    m_addresses = addresses;
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

korvane_error_t JitIdConverter::convert(u32_t jitId, u64_t address, u64_t fileStart, u64_t fileEnd,
                                        u64_t& jitRva) const {
    u32_t index = 0;
    if (findJitRva(fileStart, index) != meSuccess)
        return meNotFound;
    // Jit ids count from 1; a sum that wraps to 0 names no entry.
    const u32_t position = jitId + index;
    if (position == 0 || position > m_jitRvas.size())
        return meNotFound;
    const std::size_t k = position - 1;
    if (k >= m_lengths.size() || k >= m_addresses.size())
        return meNotFound;
    if (m_jitRvas[k] >= fileEnd)
        return meNotFound;
    if (m_addresses[k] > address)
        return meNotFound;
    if (address - m_addresses[k] >= m_lengths[k])
        return meNotFound;
    jitRva = address + m_jitRvas[k] - m_addresses[k];
    return meSuccess;
}

} // namespace korvane_3_10
