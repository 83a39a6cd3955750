// What the data manager keeps about its inline trees, so that placing an inline
// costs the same however deep the tree it joins.
#include "jitreader/inline_index.h"

#include <algorithm>
#include <tuple>

namespace korvane_3_10 {

namespace {

// True when the region is the root itself or lies anywhere below it, by a walk
// without recursion.
bool treeHolds(const Region& root, const Region* region) {
    std::vector<const Region*> pending(1, &root);
    while (!pending.empty()) {
        const Region* current = pending.back();
        pending.pop_back();
        if (current == region)
            return true;
        for (const Region::Ptr& child : current->inlinedRegions())
            if (child)
                pending.push_back(child.get());
    }
    return false;
}

} // namespace

bool InlineIndex::RecordKey::operator<(const RecordKey& other) const {
    if (parent != other.parent)
        return BaseMethodId::Comparator()(parent, other.parent);
    return std::tie(processId, hostId, startAddress, length, loadTime, methodId, parentId, qualifiedName,
                    className) < std::tie(other.processId, other.hostId, other.startAddress, other.length,
                                          other.loadTime, other.methodId, other.parentId, other.qualifiedName,
                                          other.className);
}

InlineIndex::Notes* InlineIndex::notesOf(const Region& region) {
    return const_cast<Notes*>(static_cast<const InlineIndex&>(*this).notesOf(region));
}

const InlineIndex::Notes* InlineIndex::notesOf(const Region& region) const {
    // A slot that another index handed out, or that names another region, is no note of this one.
    const u32_t slot = region.inlineNotes();
    if (slot == 0 || slot > m_notes.size() || m_notes[slot - 1].region != &region)
        return nullptr;
    return &m_notes[slot - 1];
}

InlineIndex::Notes& InlineIndex::notesFor(const Region& region) {
    if (Notes* notes = notesOf(region))
        return *notes;
    m_notes.emplace_back();
    m_notes.back().region = &region;
    region.setInlineNotes(static_cast<u32_t>(m_notes.size()));
    return m_notes.back();
}

const Region* InlineIndex::topOf(const Region& region) {
    const Region* top = &region;
    for (const Notes* notes = notesOf(*top); notes && notes->holder; notes = notesOf(*top))
        top = notes->holder;
    // The regions on the way now name the top, so that the next walk from them is one step.
    for (const Region* current = &region; current != top;) {
        Notes* notes = notesOf(*current);
        current = notes->holder;
        notes->holder = top;
    }
    return top;
}

bool InlineIndex::liesIn(const Region& region, const Region& root) {
    // A root that hangs in a tree itself has more than its own tree above the region: walked.
    const Notes* rootNotes = notesOf(root);
    if (rootNotes && rootNotes->holder)
        return treeHolds(root, &region);
    return topOf(region) == &root;
}

bool InlineIndex::keyOf(const JitMethod& method, RecordKey& key) {
    // A record of several regions is never taken for another one.
    if (method.regionCount() != 1)
        return false;
    const Region& region = *method.codeRegions().front();
    key = RecordKey{BaseMethodId{0, 0},
                    region.processId(),
                    region.hostId(),
                    region.startAddress(),
                    region.length(),
                    region.loadTime(),
                    method.getRawMethodId(),
                    method.getRawParentId(),
                    std::string(method.methodInfo()->m_names.qualified()),
                    std::string(method.methodInfo()->m_names.className())};
    return true;
}

bool InlineIndex::holdsSameRecord(const Region& top, const JitMethod& rawMethod) {
    RecordKey key;
    if (!keyOf(rawMethod, key))
        return false;
    const auto same = m_records.find(key);
    if (same == m_records.end())
        return false;
    for (const Region* region : same->second)
        if (region != &top && topOf(*region) == &top)
            return true;
    return false;
}

Region* InlineIndex::walkEnd(const Region& top, jit_rva_t jitRva) {
    const Notes* known = notesOf(top);
    if (known && known->walked)
        return nullptr;
    if (!known || !known->hasWalkEnds) {
        // A tree that has inlines before its first walk got them by id.
        if (!top.inlinedRegions().empty()) {
            notesFor(top).walked = true;
            return nullptr;
        }
        notesFor(top).hasWalkEnds = true;
    }
    const Segments& segments = notesOf(top)->walkEnds;
    auto segment = segments.upper_bound(jitRva);
    if (segment == segments.begin() || jitRva >= (--segment)->second.end)
        return const_cast<Region*>(&top);
    return segment->second.region;
}

void InlineIndex::split(Segments& segments, jit_rva_t at) {
    auto segment = segments.upper_bound(at);
    if (segment == segments.begin())
        return;
    --segment;
    if (segment->first < at && at < segment->second.end) {
        const Segment right = segment->second;
        segment->second.end = at;
        segments.insert(std::make_pair(at, right));
    }
}

// A new last child of a region takes the jit RVAs of its range whose walk ended
// in that region: the children before it hold none of them.
void InlineIndex::repaint(Segments& segments, jit_rva_t start, jit_rva_t end, const Region* top, const Region* from,
                          Region* to) {
    if (start >= end)
        return;
    split(segments, start);
    split(segments, end);
    std::vector<std::pair<jit_rva_t, jit_rva_t> > gaps;
    jit_rva_t position = start;
    for (auto segment = segments.lower_bound(start); position < end;) {
        if (segment != segments.end() && segment->first == position) {
            if (segment->second.region == from)
                segment->second.region = to;
            position = segment->second.end;
            ++segment;
            continue;
        }
        const jit_rva_t gapEnd = segment != segments.end() && segment->first < end ? segment->first : end;
        if (from == top)
            gaps.push_back(std::make_pair(position, gapEnd));
        position = gapEnd;
    }
    for (const auto& gap : gaps)
        segments.insert(std::make_pair(gap.first, Segment{gap.second, to}));
}

const Region* InlineIndex::overlappedChild(const Region& parent, u64_t start, u64_t end) const {
    const Notes* notes = notesOf(parent);
    const std::size_t count = notes ? notes->children.starts.size() : 0;
    if (count != parent.inlinedRegions().size()) {
        // Children that came some other way: looked at one by one.
        for (const Region::Ptr& child : parent.inlinedRegions()) {
            const bool apart = end <= child->startAddress() || start >= child->endAddress();
            const bool inside = end <= child->endAddress() && start >= child->startAddress();
            if (!apart && !inside)
                return child.get();
        }
        return nullptr;
    }
    if (count == 0)
        return nullptr;
    // A child that overlaps the range without holding it starts or ends inside it.
    std::size_t found = count;
    const auto starting = notes->children.starts.upper_bound(start);
    if (starting != notes->children.starts.end() && starting->first < end)
        found = starting->second;
    const auto ending = notes->children.ends.upper_bound(start);
    if (ending != notes->children.ends.end() && ending->first < end)
        found = std::min(found, ending->second);
    return found < count ? parent.inlinedRegions()[found].get() : nullptr;
}

// A cached inline is known by the parent it waits for, whatever process it came from.
bool InlineIndex::cacheKeyOf(const JitMethod& method, RecordKey& key) {
    if (!keyOf(method, key))
        return false;
    key.parent = method.getParentId();
    key.processId = 0;
    key.hostId = 0;
    return true;
}

void InlineIndex::cached(const JitMethod& inlineMethod) {
    RecordKey key;
    if (cacheKeyOf(inlineMethod, key))
        m_cached.insert(key);
}

bool InlineIndex::isCached(const JitMethod& rawMethod) const {
    RecordKey key;
    return cacheKeyOf(rawMethod, key) && m_cached.count(key) != 0;
}

void InlineIndex::attached(const Region& parent, Region& child, const JitMethod& method, const Region* walkTop) {
    const Region* top = topOf(parent);
    notesFor(child).holder = &parent;
    Children& children = notesFor(parent).children;
    if (children.starts.size() + 1 == parent.inlinedRegions().size()) {
        const std::size_t index = children.starts.size();
        children.starts.insert(std::make_pair(child.startAddress(), index));
        children.ends.insert(std::make_pair(child.endAddress(), index));
    }
    RecordKey key;
    if (keyOf(method, key))
        m_records[key].push_back(&child);

    Notes& topNotes = notesFor(*top);
    if (!walkTop || top != walkTop) {
        // Placed by id, with a tree of its own perhaps: the tree's walks are made step by step from now on.
        topNotes.walkEnds.clear();
        topNotes.hasWalkEnds = false;
        topNotes.walked = true;
        return;
    }
    if (!topNotes.hasWalkEnds)
        return;
    const jit_rva_t start = child.startJitRva();
    const jit_rva_t end = start + child.length() < start ? ~jit_rva_t(0) : start + child.length();
    repaint(topNotes.walkEnds, start, end, top, &parent, &child);
}

} // namespace korvane_3_10
