// A method's line tables by code range, in one sorted array.
#ifndef KORVANE_JITREADER_LINE_TABLE_MAP_H
#define KORVANE_JITREADER_LINE_TABLE_MAP_H

#include "jitreader/line_info_holder.h"
#include "jitreader/pool_allocator.h"
#include "jitreader/range.h"

#include <utility>
#include <vector>

namespace korvane_3_10 {

// Answers as a map keyed by Range would: an entry is found by any range that overlaps its
// key, and no two keys overlap. A method has one range, seldom a few: a sorted array
// costs one allocation where a tree costs a node per range.
class LineTableMap {
public:
    typedef std::pair<Range, LineInfoHolder> value_type;
    typedef std::vector<value_type, PoolAllocator<value_type>> Entries;
    typedef Entries::iterator iterator;
    typedef Entries::const_iterator const_iterator;

    bool empty() const { return m_entries.empty(); }
    std::size_t size() const { return m_entries.size(); }
    iterator begin() { return m_entries.begin(); }
    iterator end() { return m_entries.end(); }
    const_iterator begin() const { return m_entries.begin(); }
    const_iterator end() const { return m_entries.end(); }

    iterator find(const Range& range);
    const_iterator find(const Range& range) const;
    // Refuses, as a map does, a key that overlaps one already there.
    std::pair<iterator, bool> insert(value_type entry);
    void swap(LineTableMap& other) { m_entries.swap(other.m_entries); }

private:
    Entries m_entries;
};

} // namespace korvane_3_10

#endif
