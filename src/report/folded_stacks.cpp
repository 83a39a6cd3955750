// Folded stacks as FlameGraph, speedscope and inferno read them: one line per
// distinct stack, root to leaf joined by ';', a blank and the sample count.
#include "folded_stacks.h"

#include <algorithm>

namespace korvane_report {

FoldedStacks::FoldedStacks(const Report& report) {
    std::vector<Frame> frames;
    std::string line;
    for (std::uint32_t index = 0; index < report.stacks().size(); ++index) {
        const StackTable::Stack stack = report.stacks().stack(index);
        report.framesOf(stack, frames);
        line.clear();
        for (const Frame& frame : frames)
            appendFrame(report.strings(), frame, line);
        m_counts[line] += stack.samples;
    }
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

void FoldedStacks::write(std::ostream& out) const {
    for (const auto& stack : m_counts)
        out << stack.first << " " << stack.second << "\n";
}

} // namespace korvane_report
