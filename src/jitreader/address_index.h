// One process's address pieces and the code that lay in each over time, flat, for point queries once it is read.
#ifndef KORVANE_JITREADER_ADDRESS_INDEX_H
#define KORVANE_JITREADER_ADDRESS_INDEX_H

#include "jitreader/jit_method.h"
#include "jitreader/range_index.h"
#include "jitreader/region.h"

#include <vector>

namespace korvane_3_10 {

class AddressIndex {
public:
    // One region of a piece's time table, with what a query asks of it copied
    // beside it; the tables it comes from don't change while the index stands.
    // The method is null where the table has none for the region; the module is the method's.
    struct Entry {
        // The region's load time, which is also its key in the time table.
        u64_t loadTime;
        u64_t unloadTime;
        // Start jit RVA minus start address: an address plus this is its jit RVA.
        jit_rva_t jitRvaOffset;
        Region* region;
        JitMethod* method;
        Module* module;
    };
    // A piece of address space and the regions that lay in it, in load time order.
    // Most pieces hold one, kept in the piece itself so that a query reads no
    // second place; those of a piece with more stand in the entries.
    struct Piece {
        u32_t entryCount;
        u32_t firstEntry;
        Entry only;
    };

    bool isBuilt() const { return m_built; }
    // Drops the index: the tables it copies are changing.
    void clear();
    // Room for this many pieces, so that building the index copies none of them.
    void reservePieces(std::size_t count) { m_pieces.reserve(count); }
    // Pieces come in address order, each followed by its entries in load time order.
    void addPiece(const Range& range);
    void addEntry(u64_t loadTime, Region* region, JitMethod* method);
    void markBuilt() { m_built = true; }

    const Piece* findPiece(u64_t address) const { return m_pieces.find(address); }
    // The last entry of the piece loaded no later than the time, null when none is.
    const Entry* currentEntry(const Piece& piece, u64_t time) const;

private:
    bool m_built = false;
    RangeIndex<Piece> m_pieces;
    std::vector<Entry> m_entries;
};

} // namespace korvane_3_10

#endif
