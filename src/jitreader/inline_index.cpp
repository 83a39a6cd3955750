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

const Region* InlineIndex::topOf(const Region& region) {
    const Region* top = &region;
    for (auto holder = m_holders.find(top); holder != m_holders.end(); holder = m_holders.find(top))
        top = holder->second;
    // The regions on the way now name the top, so that the next walk from them is one step.
    for (const Region* current = &region; current != top;) {
        const auto holder = m_holders.find(current);
        current = holder->second;
        holder->second = top;
    }
    return top;
}

bool InlineIndex::liesIn(const Region& region, const Region& root) {
    // A root that hangs in a tree itself has more than its own tree above the region: walked.
    if (m_holders.count(&root) != 0)
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
                    method.methodInfo()->m_qualifiedMethodName,
                    method.methodInfo()->m_className};
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
    if (m_walked.count(&top) != 0)
        return nullptr;
    auto segments = m_walkEnds.find(&top);
    if (segments == m_walkEnds.end()) {
        // A tree that has inlines before its first walk got them by id.
        if (!top.inlinedRegions().empty()) {
            m_walked.insert(&top);
            return nullptr;
        }
        segments = m_walkEnds.insert(std::make_pair(&top, Segments())).first;
    }
    auto segment = segments->second.upper_bound(jitRva);
    if (segment == segments->second.begin() || jitRva >= (--segment)->second.end)
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
    const auto children = m_children.find(&parent);
    const std::size_t count = children == m_children.end() ? 0 : children->second.starts.size();
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
    const auto starting = children->second.starts.upper_bound(start);
    if (starting != children->second.starts.end() && starting->first < end)
        found = starting->second;
    const auto ending = children->second.ends.upper_bound(start);
    if (ending != children->second.ends.end() && ending->first < end)
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
    m_holders[&child] = &parent;
    Children& children = m_children[&parent];
    if (children.starts.size() + 1 == parent.inlinedRegions().size()) {
        const std::size_t index = children.starts.size();
        children.starts.insert(std::make_pair(child.startAddress(), index));
        children.ends.insert(std::make_pair(child.endAddress(), index));
    }
    RecordKey key;
    if (keyOf(method, key))
        m_records[key].push_back(&child);

    const auto segments = m_walkEnds.find(top);
    if (!walkTop || top != walkTop) {
        // Placed by id, with a tree of its own perhaps: the tree's walks are made step by step from now on.
        if (segments != m_walkEnds.end())
            m_walkEnds.erase(segments);
        m_walked.insert(top);
        return;
    }
    if (segments == m_walkEnds.end())
        return;
    const jit_rva_t start = child.startJitRva();
    const jit_rva_t end = start + child.length() < start ? ~jit_rva_t(0) : start + child.length();
    repaint(segments->second, start, end, top, &parent, &child);
}

} // namespace korvane_3_10
