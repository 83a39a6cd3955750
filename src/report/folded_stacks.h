// Folded stacks as FlameGraph, speedscope and inferno read them: one line per
// distinct stack, root to leaf joined by ';', a blank and the sample count.
#ifndef KORVANE_REPORT_FOLDED_STACKS_H
#define KORVANE_REPORT_FOLDED_STACKS_H

#include "report.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane_report {

class FoldedStacks {
public:
    explicit FoldedStacks(const Report& report);
    // The lines are views of the object's own text.
    FoldedStacks(const FoldedStacks&) = delete;
    FoldedStacks& operator=(const FoldedStacks&) = delete;
    void write(std::ostream& out) const;

private:
    // FlameGraph's annotations: _[j] JIT, _[i] inlined, _[k] kernel frames.
    static void appendFrame(const StringTable& strings, const Frame& frame, std::string& line);
    // All lines go into one text, so that sorting moves views and not strings.
    void appendLine(const StackTable::Stack& stack, const std::vector<std::string>& pieces,
                    const std::vector<std::uint32_t>& pieceOf);
    // Stacks of different addresses may fold into the same line: sorted, then counted together.
    void sortAndMerge();

    std::string m_text; // every stack's line, one after the other
    std::vector<std::pair<std::string_view, std::uint64_t>> m_counts;
};

} // namespace korvane_report

#endif
