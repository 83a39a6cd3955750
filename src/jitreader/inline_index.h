// What the data manager keeps about its inline trees, so that placing an inline
// costs the same however deep the tree it joins: the tree each region lies in,
// the inline records each tree holds, and where the walk by jit RVA ends in it.
#ifndef KORVANE_JITREADER_INLINE_INDEX_H
#define KORVANE_JITREADER_INLINE_INDEX_H

#include "jitreader/base_method_id.h"
#include "jitreader/jit_method.h"
#include "jitreader/region.h"

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace korvane_3_10 {

class InlineIndex {
public:
    // The region at the top of the tree the region lies in: itself when it lies in none.
    const Region* topOf(const Region& region);

    // Whether the region is the root or lies anywhere below it.
    bool liesIn(const Region& region, const Region& root);

    // Whether an inline record like this one (same ids, names and code) lies below the top already.
    bool holdsSameRecord(const Region& top, const JitMethod& rawMethod);

    // Where the walk from the top, each time into the first inline that holds
    // the jit RVA, ends: the top itself or an inline below it. Null for a tree
    // that took inlines by id, in which the caller walks.
    Region* walkEnd(const Region& top, jit_rva_t jitRva);

    // A child of the parent that the range [start, end) overlaps without lying
    // in it, null when there is none: such a range can't be the parent's inline.
    const Region* overlappedChild(const Region& parent, u64_t start, u64_t end) const;

    // Notes an inline record that waits for, or went to, the parent its id names.
    void cached(const JitMethod& inlineMethod);
    // Whether an inline record like this one (same ids, names and code) was noted so before.
    bool isCached(const JitMethod& rawMethod) const;

    // Notes that the child, in no tree until now, was attached below the parent.
    // walkTop is the top whose walk found the parent, for an inline placed by its
    // address; null for one placed by the id of its parent.
    void attached(const Region& parent, Region& child, const JitMethod& method, const Region* walkTop);

private:
    // Everything an inline record is recognised by when a file is read again.
    struct RecordKey {
        // The parent a cached inline waits for; zero for an inline in a tree.
        BaseMethodId parent;
        u32_t processId;
        u32_t hostId;
        u64_t startAddress;
        u32_t length;
        u64_t loadTime;
        u32_t methodId;
        u32_t parentId;
        std::string qualifiedName;
        std::string className;
        bool operator<(const RecordKey& other) const;
    };
    // [start, end) of jit RVAs whose walk ends in the region; a jit RVA in no
    // segment ends at the top.
    struct Segment {
        jit_rva_t end;
        Region* region;
    };
    typedef std::map<jit_rva_t, Segment> Segments;
    // The children of one region by their start and by their end address, with their index.
    struct Children {
        std::multimap<u64_t, std::size_t> starts;
        std::multimap<u64_t, std::size_t> ends;
    };

    // What the index knows of one region: the region above it, its children and, at a top, its walk ends.
    struct Notes {
        const Region* region = nullptr;
        // The region it was attached to, or a region above that; null while it hangs in no tree.
        const Region* holder = nullptr;
        Children children;
        Segments walkEnds;
        bool hasWalkEnds = false;
        bool walked = false;
    };

    static bool keyOf(const JitMethod& method, RecordKey& key);
    static bool cacheKeyOf(const JitMethod& method, RecordKey& key);
    static void split(Segments& segments, jit_rva_t at);
    static void repaint(Segments& segments, jit_rva_t start, jit_rva_t end, const Region* top, const Region* from,
                        Region* to);
    // The region's notes, null when it has none in this index.
    Notes* notesOf(const Region& region);
    const Notes* notesOf(const Region& region) const;
    Notes& notesFor(const Region& region);

    // Found from the region itself, not by a table of region addresses: the
    // notes of a region are looked up a few times for every inline placed.
    std::deque<Notes> m_notes;
    std::map<RecordKey, std::vector<const Region*> > m_records;
    std::set<RecordKey> m_cached;
};

} // namespace korvane_3_10

#endif
