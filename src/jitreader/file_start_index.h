// Where each file's first jit RVA stands in the jit id table, in one flat open-addressing table.
#ifndef KORVANE_JITREADER_FILE_START_INDEX_H
#define KORVANE_JITREADER_FILE_START_INDEX_H

#include <korvane/types.h>

#include <vector>

namespace korvane_3_10 {

// A conversion looks up its file here on every call: one probe of a dense table
// touches one cache line, where a node-based map chases pointers across the heap.
class FileStartIndex {
public:
    // Empties the table and makes room for this many file starts.
    void reset(std::size_t count);
    // The first index given for a file start stays; a start past the room made is left out.
    void add(u64_t fileStart, u32_t index);
    bool find(u64_t fileStart, u32_t& index) const;

private:
    struct Slot {
        u64_t fileStart;
        u32_t index;
        bool used;
    };

    std::size_t firstPosition(u64_t fileStart) const;

    std::vector<Slot> m_slots;
    std::size_t m_count = 0;
    unsigned m_shift = 64;
};

} // namespace korvane_3_10

#endif
