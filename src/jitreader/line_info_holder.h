// The three line tables of one code range, kept in one array.
#ifndef KORVANE_JITREADER_LINE_INFO_HOLDER_H
#define KORVANE_JITREADER_LINE_INFO_HOLDER_H

#include <korvane/types.h>

#include <cstddef>
#include <vector>

namespace korvane_3_10 {

// A range mostly has one or two of its three tables: one array holds them one after another
// (native to managed, managed to source, native to source), so that a range costs a single
// allocation.
class LineInfoHolder {
public:
    // The entries of one table.
    class Table {
    public:
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

    LineInfoHolder() : m_managedToSourceStart(0), m_nativeToSourceStart(0) {}

    // Only the three kinds of table are kept; any other type has none.
    static bool isTableType(korvane_line_info_type type);

    Table table(korvane_line_info_type type) const;
    Table nativeToManaged() const { return table(ltNativeToManaged); }
    Table managedToSource() const { return table(ltManagedToSource); }
    Table nativeToSource() const { return table(ltNativeToSource); }
    // Replaces the table of the type, which must be one of the three.
    void assign(korvane_line_info_type type, const std::vector<korvane_line_number_entry>& entries);
    void assign(korvane_line_info_type type, Table entries);

private:
    std::size_t startOf(korvane_line_info_type type) const;
    std::size_t endOf(korvane_line_info_type type) const;

    std::vector<korvane_line_number_entry> m_entries;
    u32_t m_managedToSourceStart;
    u32_t m_nativeToSourceStart;
};

} // namespace korvane_3_10

#endif
