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
    m_counts.reserve(report.stacks().size());
    for (std::uint32_t index = 0; index < report.stacks().size(); ++index) {
        const StackTable::Stack stack = report.stacks().stack(index);
        std::string line;
        for (std::uint32_t depth = stack.depth; depth-- > 0;) {
            const std::string& frames = folded[stack.locations[depth]];
            if (!line.empty())
                line += ';';
            line += frames;
        }
        m_counts.emplace_back(std::move(line), stack.samples);
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
        if (kept != index)
            m_counts[kept] = std::move(m_counts[index]);
        ++kept;
    }
    m_counts.resize(kept);
}

void FoldedStacks::write(std::ostream& out) const {
    for (const auto& stack : m_counts)
        out << stack.first << " " << stack.second << "\n";
}

} // namespace korvane_report
