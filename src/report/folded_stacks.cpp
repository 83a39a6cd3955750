// Folded stacks as FlameGraph, speedscope and inferno read them: one line per
// distinct stack, root to leaf joined by ';', a blank and the sample count.
#include "folded_stacks.h"

#include <algorithm>

namespace korvane_report {

// A location's frames are folded once, then copied into every stack that holds it.
FoldedStacks::FoldedStacks(const Report& report) {
    std::vector<std::string> folded;
    folded.reserve(report.locations().size());
    for (const Location& location : report.locations()) {
        folded.emplace_back();
        for (const Frame& frame : location.frames)
            appendFrame(report.strings(), frame, folded.back());
    }
    // All lines in one text, so that sorting moves views and not strings.
    std::vector<std::size_t> ends;
    ends.reserve(report.stacks().size());
    for (std::uint32_t index = 0; index < report.stacks().size(); ++index) {
        const StackTable::Stack stack = report.stacks().stack(index);
        const std::size_t start = m_text.size();
        for (std::uint32_t depth = stack.depth; depth-- > 0;) {
            if (m_text.size() != start)
                m_text += ';';
            m_text += folded[stack.locations[depth]];
        }
        ends.push_back(m_text.size());
    }
    m_counts.reserve(ends.size());
    for (std::uint32_t index = 0; index < ends.size(); ++index) {
        const std::size_t start = index == 0 ? 0 : ends[index - 1];
        m_counts.emplace_back(std::string_view(m_text.data() + start, ends[index] - start),
                              report.stacks().stack(index).samples);
    }
    sortAndMerge();
}

void FoldedStacks::appendFrame(const StringTable& strings, const Frame& frame, std::string& line) {
    if (!line.empty())
        line += ';';
    const std::size_t start = line.size();
    line += strings.text(frame.name);
    // The separators of the format may not appear inside a frame.
    std::replace(line.begin() + static_cast<std::ptrdiff_t>(start), line.end(), ';', ':');
    std::replace(line.begin() + static_cast<std::ptrdiff_t>(start), line.end(), '\n', ' ');
    static const char* const kSuffixes[] = {"", "_[k]", "_[j]", "_[i]"};
    line += kSuffixes[frame.kind];
}

void FoldedStacks::sortAndMerge() {
    std::sort(m_counts.begin(), m_counts.end());
    std::size_t kept = 0;
    for (std::size_t index = 0; index < m_counts.size(); ++index) {
        if (kept > 0 && m_counts[kept - 1].first == m_counts[index].first) {
            m_counts[kept - 1].second += m_counts[index].second;
            continue;
        }
        m_counts[kept++] = m_counts[index];
    }
    m_counts.resize(kept);
}

void FoldedStacks::write(std::ostream& out) const {
    for (const auto& stack : m_counts)
        out << stack.first << " " << stack.second << "\n";
}

} // namespace korvane_report
