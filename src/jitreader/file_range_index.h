// The jit RVA range of each catalogued file by the path that names it, found without taking the name apart.
#ifndef KORVANE_JITREADER_FILE_RANGE_INDEX_H
#define KORVANE_JITREADER_FILE_RANGE_INDEX_H

#include <korvane/types.h>

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace korvane_3_10 {

class FileRangeIndex {
public:
    // Notes a file in catalogue order.
    void add(const std::string& path, u64_t start, u64_t end);
    // The range for a path spelled as the scan spelled a file: that of the first
    // file whose path has the same elements. False for any other spelling.
    bool find(const char* path, u64_t& start, u64_t& end) const;

private:
    typedef std::pair<u64_t, u64_t> Bounds;

    // One spelling in a flat open-addressing table: a query reads the slot and the
    // spelling's text, and nothing else of the index. A hash of 0 marks a free slot.
    struct Slot {
        u64_t hash;
        u64_t start;
        u64_t end;
        // Where the spelling stands in m_texts.
        u32_t text;
        u32_t length;
    };

    const Slot* slotOf(const char* path, std::size_t length, u64_t hash) const;
    void insert(const Slot& slot);
    void grow();

    std::vector<Slot> m_slots;
    std::size_t m_count = 0;
    // The spellings one after another.
    std::string m_texts;
    // Paths that compare equal element by element, as one key.
    std::unordered_map<std::string, Bounds> m_byElements;
};

} // namespace korvane_3_10

#endif
