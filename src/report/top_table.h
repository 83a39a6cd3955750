// The default view of a report: sample counts, then the hottest methods and the
// hottest source lines with their self and total shares.
#ifndef KORVANE_REPORT_TOP_TABLE_H
#define KORVANE_REPORT_TOP_TABLE_H

#include "report.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <unordered_map>
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
    std::vector<Row> methods() const { return sorted(m_methods.rows); }
    std::vector<Row> lines() const { return sorted(m_lines.rows); }
    void write(std::ostream& out, std::size_t rows) const;

private:
    static constexpr std::uint32_t kNoRow = 0xffffffffu;
    // Name, module or file, line, inlined: what tells two rows apart.
    typedef std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, bool> Key;
    struct KeyHash {
        std::size_t operator()(const Key& key) const {
            const std::uint64_t mixed = (std::uint64_t{std::get<0>(key)} << 32 | std::get<1>(key)) *
                                            0x9e3779b97f4a7c15ull ^
                                        (std::uint64_t{std::get<2>(key)} << 1 | std::get<3>(key));
            return static_cast<std::size_t>(mixed ^ (mixed >> 29));
        }
    };
    struct Rows {
        std::vector<Row> rows;
        std::unordered_map<Key, std::uint32_t, KeyHash> numbers; // rows keep their order of adding
        std::vector<std::uint32_t> lastStack; // a row counts once per stack in total
    };
    // The method and line rows of each frame of a location, outermost first.
    typedef std::vector<std::pair<std::uint32_t, std::uint32_t>> LocationRows;

    LocationRows rowsOf(const Report& report, const Location& location);
    typedef std::string (*label_t)(const StringTable& strings, const Frame& frame);

    // A row's label is made once, when the row is added.
    static std::uint32_t rowOf(Rows& rows, const Key& key, const Frame& frame, const StringTable& strings,
                               label_t label);
    void addStack(const StackTable::Stack& stack, std::uint32_t number);
    static void addTotal(Rows& rows, std::uint32_t row, std::uint32_t stack, std::uint64_t samples);
    static std::vector<Row> sorted(const std::vector<Row>& rows);
    void writeRows(std::ostream& out, const char* title, const char* what, const std::vector<Row>& rows,
                   std::size_t count) const;

    SampleCounts m_counts;
    Rows m_methods;
    Rows m_lines;
    std::vector<LocationRows> m_locations;
};

} // namespace korvane_report

#endif
