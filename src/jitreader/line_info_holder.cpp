// The three line tables of one code range, as a view into the method's line table block.
#include "jitreader/line_info_holder.h"

namespace korvane_3_10 {

bool LineInfoHolder::isTableType(korvane_line_info_type type) {
    return type == ltNativeToManaged || type == ltManagedToSource || type == ltNativeToSource;
}

std::size_t LineInfoHolder::tableIndex(korvane_line_info_type type) {
    // The three types count 0, 1 and 2 in the order the tables lie.
    return static_cast<std::size_t>(type);
}

LineInfoHolder::Table LineInfoHolder::table(korvane_line_info_type type) const {
    if (!isTableType(type))
        return Table();
    const std::size_t index = tableIndex(type);
    const u32_t start = index == 0 ? 0 : m_ends[index - 1];
    return Table(m_entries + start, m_entries + m_ends[index]);
}

} // namespace korvane_3_10
