// The default view of a report: sample counts, then the hottest methods and the
// hottest source lines with their self and total shares.
#ifndef KORVANE_REPORT_TOP_TABLE_H
#define KORVANE_REPORT_TOP_TABLE_H

#include "report.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace korvane_report {

class TopTable {
public:
    struct Row {
        std::string kind; // "jit", "inline", "native" or "kernel"
        std::string label;
        std::uint64_t self = 0;
        std::uint64_t total = 0;
    };

    explicit TopTable(const Report& report);

    // Hottest first: by self, then by total samples.
    std::vector<Row> methods() const { return sorted(m_methods); }
    std::vector<Row> lines() const { return sorted(m_lines); }
    void write(std::ostream& out, std::size_t rows) const;

private:
    // Name, module or file, line, kind: what tells two rows apart.
    typedef std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, int> Key;

    void addStack(const Report& report, const std::vector<Frame>& frames, std::uint64_t samples);
    static void addTotals(std::map<Key, Row>& rows, std::vector<Key>& keys, std::uint64_t samples);
    Row& row(std::map<Key, Row>& rows, const Key& key, const Frame& frame, const std::string& label);
    static std::vector<Row> sorted(const std::map<Key, Row>& rows);
    void writeRows(std::ostream& out, const char* title, const char* what, const std::vector<Row>& rows,
                   std::size_t count) const;

    SampleCounts m_counts;
    std::map<Key, Row> m_methods;
    std::map<Key, Row> m_lines;
};

} // namespace korvane_report

#endif
