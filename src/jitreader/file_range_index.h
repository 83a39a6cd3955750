// The jit RVA range of each catalogued file by the path that names it, found without taking the name apart.
#ifndef KORVANE_JITREADER_FILE_RANGE_INDEX_H
#define KORVANE_JITREADER_FILE_RANGE_INDEX_H

#include <korvane/types.h>

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

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

    // The spellings the keys below look at: a deque never moves what it holds,
    // and a view key lets a query look up a char* without making a string.
    std::deque<std::string> m_spellings;
    // Paths of one catalogue differ in their last elements: the hash looks at the tail only.
    struct TailHash {
        std::size_t operator()(std::string_view path) const;
    };
    std::unordered_map<std::string_view, Bounds, TailHash> m_bySpelling;
    // Paths that compare equal element by element, as one key.
    std::unordered_map<std::string, Bounds> m_byElements;
};

} // namespace korvane_3_10

#endif
