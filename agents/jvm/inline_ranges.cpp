// The JVM's per-pc inline stacks of a compiled method as nested address ranges.
#include "inline_ranges.h"

#include <algorithm>

namespace korvane_jvmagent {

namespace {

void appendStretch(std::vector<Stretch>& stretches, const Stretch& stretch) {
    if (!stretches.empty() && stretches.back().end == stretch.start && stretches.back().bci == stretch.bci) {
        stretches.back().end = stretch.end;
        return;
    }
    stretches.push_back(stretch);
}

} // namespace

InlineRanges InlineRanges::create(std::uint64_t codeStart, std::uint64_t codeEnd, std::vector<PcStack> stacks) {
    std::stable_sort(stacks.begin(), stacks.end(),
                     [](const PcStack& left, const PcStack& right) { return left.pc < right.pc; });
    InlineRanges ranges;
    std::uint64_t previous = codeStart;
    for (const PcStack& stack : stacks) {
        const std::uint64_t start = std::max(previous, codeStart);
        const std::uint64_t end = std::min(stack.pc, codeEnd);
        previous = std::max(previous, stack.pc);
        if (end <= start)
            continue;
        ranges.add(start, end, stack.frames);
    }
    return ranges;
}

// An instance of an inlined method goes on while its enclosing range goes
// on, the same method sits at the same depth, and the caller calls it from
// the same bytecode.
void InlineRanges::add(std::uint64_t start, std::uint64_t end, const std::vector<StackFrame>& frames) {
    if (frames.empty()) {
        m_open.clear();
        return;
    }
    m_described.push_back(DescribedCode{start, end, frames});
    appendStretch(m_outer, Stretch{start, end, frames[0].bci});
    bool enclosingGoesOn = true;
    for (std::size_t depth = 1; depth < frames.size(); ++depth) {
        const int open = depth <= m_open.size() ? m_open[depth - 1] : -1;
        enclosingGoesOn = enclosingGoesOn && open >= 0 && continues(open, start, frames[depth], frames[depth - 1]);
        if (enclosingGoesOn) {
            m_ranges[open].end = end;
        } else {
            const int parent = depth == 1 ? -1 : m_open[depth - 2];
            m_ranges.push_back(InlineRange{start, end, frames[depth].method, frames[depth - 1].bci, parent, {}});
            m_open.resize(depth - 1);
            m_open.push_back(static_cast<int>(m_ranges.size() - 1));
        }
        appendStretch(m_ranges[m_open[depth - 1]].stretches, Stretch{start, end, frames[depth].bci});
    }
    m_open.resize(frames.size() - 1);
}

bool InlineRanges::continues(int index, std::uint64_t start, const StackFrame& frame, const StackFrame& caller) const {
    const InlineRange& range = m_ranges[index];
    return range.end == start && range.method == frame.method && range.callerBci == caller.bci;
}

} // namespace korvane_jvmagent
