// One process's address pieces and the code that lay in each over time, flat, for point queries once it is read.
#include "jitreader/address_index.h"

#include <algorithm>

namespace korvane_3_10 {

void AddressIndex::clear() {
    m_built = false;
    m_pieces.clear();
    m_entries.clear();
}

void AddressIndex::addPiece(const Range& range) { m_pieces.append(range, Piece{0, 0, Entry()}); }

void AddressIndex::addEntry(u64_t loadTime, Region* region, JitMethod* method) {
    Module* module = method ? method->methodInfo()->m_module.get() : nullptr;
    const jit_rva_t offset = region ? region->startJitRva() - region->startAddress() : 0;
    const Entry entry{loadTime, region ? region->unloadTime() : 0, offset, region, method, module};
    Piece& piece = m_pieces.back();
    if (piece.entryCount == 0) {
        piece.only = entry;
    } else {
        if (piece.entryCount == 1) {
            piece.firstEntry = static_cast<u32_t>(m_entries.size());
            m_entries.push_back(piece.only);
        }
        m_entries.push_back(entry);
    }
    ++piece.entryCount;
}

const AddressIndex::Entry* AddressIndex::currentEntry(const Piece& piece, u64_t time) const {
    if (piece.entryCount == 1)
        return piece.only.loadTime <= time ? &piece.only : nullptr;
    const auto first = m_entries.begin() + piece.firstEntry;
    const auto last = first + piece.entryCount;
    const auto after = std::upper_bound(first, last, time, [](u64_t value, const Entry& entry) {
        return value < entry.loadTime;
    });
    return after == first ? nullptr : &*(after - 1);
}

} // namespace korvane_3_10
