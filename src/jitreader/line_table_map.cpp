// A method's line tables by code range, in one sorted array.
#include "jitreader/line_table_map.h"

#include <algorithm>

namespace korvane_3_10 {

namespace {

bool keyBefore(const LineTableMap::value_type& entry, const Range& range) {
    return Range::Comparator()(entry.first, range);
}

} // namespace

LineTableMap::iterator LineTableMap::find(const Range& range) {
    const iterator found = std::lower_bound(m_entries.begin(), m_entries.end(), range, keyBefore);
    return found != m_entries.end() && !Range::Comparator()(range, found->first) ? found : m_entries.end();
}

LineTableMap::const_iterator LineTableMap::find(const Range& range) const {
    return const_cast<LineTableMap*>(this)->find(range);
}

std::pair<LineTableMap::iterator, bool> LineTableMap::insert(value_type entry) {
    const iterator place = std::lower_bound(m_entries.begin(), m_entries.end(), entry.first, keyBefore);
    if (place != m_entries.end() && !Range::Comparator()(entry.first, place->first))
        return std::make_pair(place, false);
    return std::make_pair(m_entries.insert(place, std::move(entry)), true);
}

} // namespace korvane_3_10
