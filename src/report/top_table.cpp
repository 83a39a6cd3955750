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
    std::vector<Frame> frames;
    for (std::uint32_t index = 0; index < report.stacks().size(); ++index) {
        const StackTable::Stack stack = report.stacks().stack(index);
        report.framesOf(stack, frames);
        addStack(report, frames, stack.samples);
    }
}

TopTable::Row& TopTable::row(std::map<Key, Row>& rows, const Key& key, const Frame& frame, const std::string& label) {
    Row& found = rows[key];
    if (found.label.empty()) {
        found.kind = kindText(frame.kind);
        found.label = label;
    }
    return found;
}

// A method or line counts once per sample in total, however often the stack holds it.
void TopTable::addStack(const Report& report, const std::vector<Frame>& frames, std::uint64_t samples) {
    if (frames.empty())
        return;
    const StringTable& strings = report.strings();
    std::vector<Key> methodKeys;
    std::vector<Key> lineKeys;
    for (const Frame& frame : frames) {
        const int inlined = frame.kind == fkInlined;
        const Key method(frame.name, frame.module, 0, inlined);
        methodKeys.push_back(method);
        row(m_methods, method, frame, methodLabel(strings, frame));
        if (frame.line == 0 && frame.file == 0)
            continue;
        const Key line(frame.name, frame.file, frame.line, inlined);
        lineKeys.push_back(line);
        row(m_lines, line, frame, lineLabel(strings, frame));
    }
    const Frame& leaf = frames.back();
    const int leafInlined = leaf.kind == fkInlined;
    m_methods[Key(leaf.name, leaf.module, 0, leafInlined)].self += samples;
    if (leaf.line != 0 || leaf.file != 0)
        m_lines[Key(leaf.name, leaf.file, leaf.line, leafInlined)].self += samples;
    addTotals(m_methods, methodKeys, samples);
    addTotals(m_lines, lineKeys, samples);
}

void TopTable::addTotals(std::map<Key, Row>& rows, std::vector<Key>& keys, std::uint64_t samples) {
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    for (const Key& key : keys)
        rows[key].total += samples;
}

std::vector<TopTable::Row> TopTable::sorted(const std::map<Key, Row>& rows) {
    std::vector<Row> result;
    for (const auto& entry : rows)
        result.push_back(entry.second);
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
