// Where each file's first jit RVA stands in the jit id table, in one flat open-addressing table.
#include "jitreader/file_start_index.h"

namespace korvane_3_10 {

void FileStartIndex::reset(std::size_t count) {
    // At most half the slots in use keeps the probe runs short.
    unsigned bits = 1;
    while ((std::size_t(1) << bits) < 2 * count && bits < 63)
        ++bits;
    m_slots.assign(std::size_t(1) << bits, Slot{0, 0, false});
    m_count = 0;
    m_shift = 64 - bits;
}

std::size_t FileStartIndex::firstPosition(u64_t fileStart) const {
    // File starts grow by file sizes; the multiplication spreads them over the top bits.
    return static_cast<std::size_t>((fileStart * 0x9e3779b97f4a7c15ull) >> m_shift);
}

void FileStartIndex::add(u64_t fileStart, u32_t index) {
    if (2 * (m_count + 1) > m_slots.size())
        return;
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t position = firstPosition(fileStart);; position = (position + 1) & mask) {
        Slot& slot = m_slots[position];
        if (slot.used && slot.fileStart == fileStart)
            return;
        if (slot.used)
            continue;
        slot = Slot{fileStart, index, true};
        ++m_count;
        return;
    }
}

bool FileStartIndex::find(u64_t fileStart, u32_t& index) const {
    if (m_count == 0)
        return false;
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t position = firstPosition(fileStart);; position = (position + 1) & mask) {
        const Slot& slot = m_slots[position];
        if (!slot.used)
            return false;
        if (slot.fileStart != fileStart)
            continue;
        index = slot.index;
        return true;
    }
}

} // namespace korvane_3_10
