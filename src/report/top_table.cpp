// The default view of a report: sample counts, then the hottest methods and the
// hottest source lines with their self and total shares.
#include "top_table.h"

#include <algorithm>
#include <cstdio>

namespace korvane_report {

namespace {

const char* kindText(frame_kind_t kind) {
    switch (kind) {
    case fkJit:
        return "jit";
    case fkInlined:
        return "inline";
    case fkKernel:
        return "kernel";
    case fkNative:
        break;
    }
    return "native";
}

std::string share(std::uint64_t part, std::uint64_t whole) {
    char text[16];
    std::snprintf(text, sizeof(text), "%5.1f%%", whole ? 100.0 * static_cast<double>(part) / whole : 0.0);
    return text;
}

std::string methodLabel(const StringTable& strings, const Frame& frame) {
    const std::string& module = strings.text(frame.module);
    if (frame.kind == fkJit || frame.kind == fkInlined || module.empty())
        return strings.text(frame.name);
    return strings.text(frame.name) + "  (" + module + ")";
}

std::string lineLabel(const StringTable& strings, const Frame& frame) {
    const std::string& file = strings.text(frame.file);
    return (file.empty() ? std::string("?") : file) + ":" + std::to_string(frame.line) + "  " +
           strings.text(frame.name);
}

} // namespace

TopTable::TopTable(const Report& report) : m_counts(report.counts()) {
    for (const Location& location : report.locations())
        m_locations.push_back(rowsOf(report, location));
    for (std::uint32_t index = 0; index < report.stacks().size(); ++index)
        addStack(report.stacks().stack(index), index);
}

TopTable::LocationRows TopTable::rowsOf(const Report& report, const Location& location) {
    LocationRows rows;
    for (const Frame& frame : location.frames) {
        const bool inlined = frame.kind == fkInlined;
        const std::uint32_t method =
            rowOf(m_methods, Key(frame.name, frame.module, 0, inlined), frame, report.strings(), methodLabel);
        const bool hasLine = frame.line != 0 || frame.file != 0;
        rows.emplace_back(method, hasLine ? rowOf(m_lines, Key(frame.name, frame.file, frame.line, inlined), frame,
                                                  report.strings(), lineLabel)
                                          : kNoRow);
    }
    return rows;
}

std::uint32_t TopTable::rowOf(Rows& rows, const Key& key, const Frame& frame, const StringTable& strings,
                              label_t label) {
    const auto added = rows.numbers.emplace(key, static_cast<std::uint32_t>(rows.rows.size()));
    if (added.second) {
        rows.rows.push_back(Row{kindText(frame.kind), label(strings, frame), 0, 0});
        rows.lastStack.push_back(kNoRow);
    }
    return added.first->second;
}

void TopTable::addStack(const StackTable::Stack& stack, std::uint32_t number) {
    const LocationRows& leaf = m_locations[stack.locations[0]];
    if (leaf.empty())
        return;
    m_methods.rows[leaf.back().first].self += stack.samples;
    if (leaf.back().second != kNoRow)
        m_lines.rows[leaf.back().second].self += stack.samples;
    for (std::uint32_t depth = 0; depth < stack.depth; ++depth) {
        for (const auto& rows : m_locations[stack.locations[depth]]) {
            addTotal(m_methods, rows.first, number, stack.samples);
            addTotal(m_lines, rows.second, number, stack.samples);
        }
    }
}

void TopTable::addTotal(Rows& rows, std::uint32_t row, std::uint32_t stack, std::uint64_t samples) {
    if (row == kNoRow || rows.lastStack[row] == stack)
        return;
    rows.lastStack[row] = stack;
    rows.rows[row].total += samples;
}

std::vector<TopTable::Row> TopTable::sorted(const std::vector<Row>& rows) {
    std::vector<Row> result = rows;
    std::stable_sort(result.begin(), result.end(), [](const Row& a, const Row& b) {
        return a.self != b.self ? a.self > b.self : a.total > b.total;
    });
    return result;
}

void TopTable::write(std::ostream& out, std::size_t rows) const {
    out << "samples: " << m_counts.samples << " total, " << m_counts.inJit << " in JIT code, " << m_counts.resolved
        << " resolved, " << m_counts.outside << " outside JIT code (" << m_counts.untraced
        << " in processes without traces)\n";
    out << "frames: " << m_counts.frames << " total, " << m_counts.jitFrames << " in JIT code, "
        << m_counts.resolvedFrames << " resolved\n";
    writeRows(out, "methods", "method", methods(), rows);
    writeRows(out, "source lines", "line", lines(), rows);
}

void TopTable::writeRows(std::ostream& out, const char* title, const char* what, const std::vector<Row>& rows,
                         std::size_t count) const {
    out << "\n" << title << " (" << std::min(count, rows.size()) << " of " << rows.size() << ")\n";
    out << "  self%  total%  kind    " << what << "\n";
    char head[48];
    for (std::size_t index = 0; index < rows.size() && index < count; ++index) {
        const Row& row = rows[index];
        std::snprintf(head, sizeof(head), "%s  %s  %-6s  ", share(row.self, m_counts.samples).c_str(),
                      share(row.total, m_counts.samples).c_str(), row.kind.c_str());
        out << " " << head << row.label << "\n";
    }
}

} // namespace korvane_report
