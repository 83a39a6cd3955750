// Folded stacks as FlameGraph, speedscope and inferno read them: one line per
// distinct stack, root to leaf joined by ';', a blank and the sample count.
#include "folded_stacks.h"

#include <algorithm>
#include <unordered_map>

namespace korvane_report {

namespace {

// The folded text of each location, numbered so that locations of the same text (other
// processes, other addresses of a function) share a number.
struct Pieces {
    std::vector<std::string> texts;
    std::vector<std::uint32_t> ofLocation;
};

std::uint64_t hashOf(const StackTable::Stack& stack, const std::vector<std::uint32_t>& pieceOf) {
    std::uint64_t hash = 0xcbf29ce484222325ull ^ stack.depth;
    for (std::uint32_t depth = 0; depth < stack.depth; ++depth)
        hash = (hash ^ pieceOf[stack.locations[depth]]) * 0x100000001b3ull;
    return hash;
}

// Stacks ordered by their pieces, leaf first: those of the same pieces side by side.
bool piecesBefore(const StackTable::Stack& a, const StackTable::Stack& b, const std::vector<std::uint32_t>& pieceOf) {
    if (a.depth != b.depth)
        return a.depth < b.depth;
    for (std::uint32_t depth = 0; depth < a.depth; ++depth) {
        const std::uint32_t left = pieceOf[a.locations[depth]];
        const std::uint32_t right = pieceOf[b.locations[depth]];
        if (left != right)
            return left < right;
    }
    return false;
}

} // namespace

// A location's frames are folded once; stacks of the same folded locations are counted
// together before their line is made, so that each distinct line is made once.
FoldedStacks::FoldedStacks(const Report& report) {
    Pieces pieces;
    std::unordered_map<std::string, std::uint32_t> numbers;
    for (const Location& location : report.locations()) {
        std::string folded;
        for (const Frame& frame : location.frames)
            appendFrame(report.strings(), frame, folded);
        const auto added = numbers.emplace(folded, static_cast<std::uint32_t>(pieces.texts.size()));
        if (added.second)
            pieces.texts.push_back(std::move(folded));
        pieces.ofLocation.push_back(added.first->second);
    }
    const StackTable& stacks = report.stacks();
    std::vector<std::uint64_t> hashes(stacks.size());
    std::vector<std::uint32_t> order(stacks.size());
    for (std::uint32_t index = 0; index < stacks.size(); ++index) {
        hashes[index] = hashOf(stacks.stack(index), pieces.ofLocation);
        order[index] = index;
    }
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        if (hashes[a] != hashes[b])
            return hashes[a] < hashes[b];
        return piecesBefore(stacks.stack(a), stacks.stack(b), pieces.ofLocation);
    });
    std::vector<std::pair<std::size_t, std::uint64_t>> ends;
    for (std::size_t first = 0, next = 0; first < order.size(); first = next) {
        const StackTable::Stack stack = stacks.stack(order[first]);
        std::uint64_t samples = 0;
        for (next = first; next < order.size() && hashes[order[next]] == hashes[order[first]] &&
                           !piecesBefore(stack, stacks.stack(order[next]), pieces.ofLocation);
             ++next)
            samples += stacks.stack(order[next]).samples;
        appendLine(stack, pieces.texts, pieces.ofLocation);
        ends.emplace_back(m_text.size(), samples);
    }
    m_counts.reserve(ends.size());
    for (std::size_t index = 0; index < ends.size(); ++index) {
        const std::size_t start = index == 0 ? 0 : ends[index - 1].first;
        m_counts.emplace_back(std::string_view(m_text.data() + start, ends[index].first - start), ends[index].second);
    }
    sortAndMerge();
}

void FoldedStacks::appendLine(const StackTable::Stack& stack, const std::vector<std::string>& pieces,
                              const std::vector<std::uint32_t>& pieceOf) {
    const std::size_t start = m_text.size();
    for (std::uint32_t depth = stack.depth; depth-- > 0;) {
        if (m_text.size() != start)
            m_text += ';';
        m_text += pieces[pieceOf[stack.locations[depth]]];
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
