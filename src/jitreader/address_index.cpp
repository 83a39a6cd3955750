// One process's address pieces and the code that lay in each over time, flat, for point queries once it is read.
#include "jitreader/address_index.h"

#include <algorithm>

namespace korvane_3_10 {

void AddressIndex::clear() {
    m_built = false;
    m_pieces.clear();
    m_entries.clear();
}

void AddressIndex::addPiece(const Range& range) {
    m_pieces.append(range, Piece{static_cast<u32_t>(m_entries.size()), 0});
}

void AddressIndex::addEntry(u64_t loadTime, Region* region, JitMethod* method) {
    Module* module = method ? method->methodInfo()->m_module.get() : nullptr;
    if (region)
        m_entries.push_back(Entry{loadTime, region->loadTime(), region->unloadTime(), region->startAddress(),
                                  region->startJitRva(), region, method, module});
    else
        m_entries.push_back(Entry{loadTime, 0, 0, 0, 0, nullptr, method, module});
    ++m_pieces.back().entryCount;
}

const AddressIndex::Entry* AddressIndex::currentEntry(const Piece& piece, u64_t time) const {
    const auto first = m_entries.begin() + piece.firstEntry;
    const auto last = first + piece.entryCount;
    const auto after = std::upper_bound(first, last, time, [](u64_t value, const Entry& entry) {
        return value < entry.loadTime;
    });
    return after == first ? nullptr : &*(after - 1);
}

} // namespace korvane_3_10
