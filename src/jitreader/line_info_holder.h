// The three line tables of one code range, as a view into the method's line table block.
#ifndef KORVANE_JITREADER_LINE_INFO_HOLDER_H
#define KORVANE_JITREADER_LINE_INFO_HOLDER_H

#include <korvane/types.h>

#include <cstddef>

namespace korvane_3_10 {

// The tables lie one after another (native to managed, managed to source, native to source);
// the view is valid until its method's line tables change.
class LineInfoHolder {
public:
    // The entries of one table.
    class Table {
    public:
        Table() : m_begin(nullptr), m_end(nullptr) {}
        Table(const korvane_line_number_entry* begin, const korvane_line_number_entry* end)
            : m_begin(begin), m_end(end) {}
        const korvane_line_number_entry* begin() const { return m_begin; }
        const korvane_line_number_entry* end() const { return m_end; }
        std::size_t size() const { return static_cast<std::size_t>(m_end - m_begin); }
        bool empty() const { return m_begin == m_end; }
        const korvane_line_number_entry& operator[](std::size_t index) const { return m_begin[index]; }
        const korvane_line_number_entry& front() const { return *m_begin; }

    private:
        const korvane_line_number_entry* m_begin;
        const korvane_line_number_entry* m_end;
    };

    // The three tables end at the three counts, each counted from entries.
    LineInfoHolder(const korvane_line_number_entry* entries, u32_t nativeToManagedEnd, u32_t managedToSourceEnd,
                   u32_t nativeToSourceEnd)
        : m_entries(entries), m_ends{nativeToManagedEnd, managedToSourceEnd, nativeToSourceEnd} {}

    // Only the three kinds of table are kept; any other type has none.
    static bool isTableType(korvane_line_info_type type);
    // 0, 1 and 2 for the three kinds of table, in the order they lie; for those three only.
    static std::size_t tableIndex(korvane_line_info_type type);

    Table table(korvane_line_info_type type) const;
    Table nativeToManaged() const { return table(ltNativeToManaged); }
    Table managedToSource() const { return table(ltManagedToSource); }
    Table nativeToSource() const { return table(ltNativeToSource); }

private:
    const korvane_line_number_entry* m_entries;
    u32_t m_ends[3];
};

} // namespace korvane_3_10

#endif
