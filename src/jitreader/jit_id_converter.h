// Turns (jit id, address, file range) into a jit RVA over a snapshot of the regions.
#ifndef KORVANE_JITREADER_JIT_ID_CONVERTER_H
#define KORVANE_JITREADER_JIT_ID_CONVERTER_H

#include "jitreader/block_index.h"
#include "jitreader/file_start_index.h"

#include <korvane/types.h>

#include <vector>

namespace korvane_3_10 {

class JitIdConverter {
public:
    void initialize(const std::vector<u64_t>& jitRvas, const std::vector<u32_t>& lengths,
                    const std::vector<u64_t>& addresses);
    // A binary search that doesn't insist on a hit.
    korvane_error_t findJitRva(u64_t jitRva, u32_t& index) const;
    korvane_error_t convert(u32_t jitId, u64_t address, u64_t fileStart, u64_t fileEnd, u64_t& jitRva) const;
    // Finds, once, where each file's first jit RVA stands in the table: a conversion names
    // its file, and a catalogue of thousands of files would otherwise be searched each time.
    void noteFileStarts(const std::vector<u64_t>& fileStarts);

    bool empty() const { return m_jitRvas.empty(); }

private:
    // The index of the jit RVA where the table holds it; the search above gives
    // that same index then, only with more steps through a large table.
    bool findExactly(u64_t jitRva, u32_t& index) const;
    // Where a conversion from the file starting at this jit RVA counts from; false where none does.
    bool findFileStart(u64_t fileStart, u32_t& index) const;

    // What a conversion reads of one entry, side by side, in 24 bytes: the table is
    // far larger than the caches and each conversion reads one entry of it. An entry
    // beyond the end of the lengths or addresses given has length 0: no address lies in it.
    struct Target {
        u64_t jitRva;
        u64_t address;
        u32_t length;
    };

    std::vector<u64_t> m_jitRvas;
    std::vector<Target> m_targets;
    // Blocks of the jit RVAs when the table is in ascending order; else empty.
    BlockIndex m_blocks;
    FileStartIndex m_fileStartIndexes;
};

} // namespace korvane_3_10

#endif
