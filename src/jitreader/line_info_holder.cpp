// The three line tables of one code range, kept in one array.
#include "jitreader/line_info_holder.h"

namespace korvane_3_10 {

bool LineInfoHolder::isTableType(korvane_line_info_type type) {
    return type == ltNativeToManaged || type == ltManagedToSource || type == ltNativeToSource;
}

std::size_t LineInfoHolder::startOf(korvane_line_info_type type) const {
    switch (type) {
    case ltManagedToSource:
        return m_managedToSourceStart;
    case ltNativeToSource:
        return m_nativeToSourceStart;
    default:
        return 0;
    }
}

std::size_t LineInfoHolder::endOf(korvane_line_info_type type) const {
    switch (type) {
    case ltNativeToManaged:
        return m_managedToSourceStart;
    case ltManagedToSource:
        return m_nativeToSourceStart;
    default:
        return m_entries.size();
    }
}

LineInfoHolder::Table LineInfoHolder::table(korvane_line_info_type type) const {
    if (!isTableType(type))
        return Table(nullptr, nullptr);
    const korvane_line_number_entry* entries = m_entries.data();
    return Table(entries + startOf(type), entries + endOf(type));
}

void LineInfoHolder::assign(korvane_line_info_type type, const std::vector<korvane_line_number_entry>& entries) {
    assign(type, Table(entries.data(), entries.data() + entries.size()));
}

void LineInfoHolder::assign(korvane_line_info_type type, Table entries) {
    const std::size_t start = startOf(type);
    const std::size_t end = endOf(type);
    // Built anew, so that the array stays exactly as large as its entries, and the entries
    // given may come from this holder.
    std::vector<korvane_line_number_entry> joined;
    joined.reserve(m_entries.size() - (end - start) + entries.size());
    joined.insert(joined.end(), m_entries.begin(), m_entries.begin() + static_cast<std::ptrdiff_t>(start));
    joined.insert(joined.end(), entries.begin(), entries.end());
    joined.insert(joined.end(), m_entries.begin() + static_cast<std::ptrdiff_t>(end), m_entries.end());
    const u32_t removed = static_cast<u32_t>(end - start);
    const u32_t added = static_cast<u32_t>(entries.size());
    if (type == ltNativeToManaged)
        m_managedToSourceStart = m_managedToSourceStart - removed + added;
    if (type != ltNativeToSource)
        m_nativeToSourceStart = m_nativeToSourceStart - removed + added;
    m_entries.swap(joined);
}

} // namespace korvane_3_10
