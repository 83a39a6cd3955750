// A method's line tables by code range, in one block with its keys.
#include "jitreader/line_table_map.h"

#include "jitreader/slab_pool.h"

#include <algorithm>
#include <cstring>

namespace korvane_3_10 {

// A block is the header, the slots in key order, then the entries of all slots: a slot's
// three tables lie between the previous slot's last end (or 0) and its own.
struct LineTableMap::Header {
    u32_t slotCount;
    u32_t entryCount;
};

struct LineTableMap::Slot {
    u64_t start;
    u32_t length;
    u32_t ends[3];

    Range key() const { return Range{start, length}; }
};

namespace {

const korvane_line_info_type g_tableTypes[] = {ltNativeToManaged, ltManagedToSource, ltNativeToSource};

template <class Header, class Slot>
std::size_t blockBytes(std::size_t slotCount, std::size_t entryCount) {
    return sizeof(Header) + slotCount * sizeof(Slot) + entryCount * sizeof(korvane_line_number_entry);
}

} // namespace

LineTableMap::LineTableMap(const LineTableMap& other) : m_block(nullptr) {
    if (!other.m_block)
        return;
    const std::size_t bytes = blockBytes<Header, Slot>(other.m_block->slotCount, other.m_block->entryCount);
    m_block = static_cast<Header*>(SlabPool::allocateSized(bytes));
    std::memcpy(m_block, other.m_block, bytes);
}

LineTableMap& LineTableMap::operator=(const LineTableMap& other) {
    LineTableMap copy(other);
    swap(copy);
    return *this;
}

LineTableMap::~LineTableMap() { replaceBlock(nullptr); }

std::size_t LineTableMap::size() const { return m_block ? m_block->slotCount : 0; }

LineTableMap::Slot* LineTableMap::slots() const { return reinterpret_cast<Slot*>(m_block + 1); }

korvane_line_number_entry* LineTableMap::entries() const {
    return reinterpret_cast<korvane_line_number_entry*>(slots() + m_block->slotCount);
}

u32_t LineTableMap::tablesStart(u32_t index) const { return index == 0 ? 0 : slots()[index - 1].ends[2]; }

LineTableMap::value_type LineTableMap::entryAt(u32_t index) const {
    const Slot& slot = slots()[index];
    const u32_t start = tablesStart(index);
    return value_type(slot.key(), LineInfoHolder(entries() + start, slot.ends[0] - start, slot.ends[1] - start,
                                                 slot.ends[2] - start));
}

u32_t LineTableMap::lowerBound(const Range& range) const {
    if (!m_block)
        return 0;
    const Slot* first = slots();
    const Slot* found = std::lower_bound(first, first + m_block->slotCount, range,
                                         [](const Slot& slot, const Range& probe) {
                                             return Range::Comparator()(slot.key(), probe);
                                         });
    return static_cast<u32_t>(found - first);
}

LineTableMap::const_iterator LineTableMap::find(const Range& range) const {
    const u32_t index = lowerBound(range);
    if (index == size() || Range::Comparator()(range, slots()[index].key()))
        return end();
    return const_iterator(*this, index);
}

bool LineTableMap::insert(const Range& key, korvane_line_info_type type, LineInfoHolder::Table entries) {
    const u32_t index = lowerBound(key);
    if (index < size() && !Range::Comparator()(key, slots()[index].key()))
        return false;
    Tables tables;
    if (LineInfoHolder::isTableType(type))
        tables[LineInfoHolder::tableIndex(type)] = entries;
    replaceBlock(rebuilt(index, &key, tables));
    return true;
}

void LineTableMap::assign(const_iterator at, korvane_line_info_type type, LineInfoHolder::Table entries) {
    const LineInfoHolder holder = (*at).second;
    Tables tables;
    for (korvane_line_info_type each : g_tableTypes)
        tables[LineInfoHolder::tableIndex(each)] = each == type ? entries : holder.table(each);
    replaceBlock(rebuilt(at.index(), nullptr, tables));
}

void LineTableMap::copyTablesToFirst(const_iterator from) {
    if (from.index() == 0)
        return;
    const LineInfoHolder holder = (*from).second;
    const Tables tables = {holder.nativeToManaged(), holder.managedToSource(), holder.nativeToSource()};
    replaceBlock(rebuilt(0, nullptr, tables));
}

void LineTableMap::shiftKeys(u64_t offset) {
    for (u32_t index = 0; index < size(); ++index)
        slots()[index].start += offset;
}

LineTableMap::Header* LineTableMap::rebuilt(u32_t index, const Range* newKey, const Tables& tables) const {
    const u32_t oldSlots = static_cast<u32_t>(size());
    const u32_t oldEntries = m_block ? m_block->entryCount : 0;
    const Slot* old = m_block ? slots() : nullptr;
    const korvane_line_number_entry* oldTables = m_block ? entries() : nullptr;
    const u32_t begin = tablesStart(index);
    const u32_t removedEnd = newKey ? begin : old[index].ends[2];
    u32_t added = 0;
    for (const LineInfoHolder::Table& table : tables)
        added += static_cast<u32_t>(table.size());
    const u32_t slotCount = oldSlots + (newKey ? 1 : 0);
    const u32_t entryCount = oldEntries - (removedEnd - begin) + added;

    Header* block = static_cast<Header*>(SlabPool::allocateSized(blockBytes<Header, Slot>(slotCount, entryCount)));
    *block = Header{slotCount, entryCount};
    Slot* target = reinterpret_cast<Slot*>(block + 1);
    korvane_line_number_entry* targetEntries = reinterpret_cast<korvane_line_number_entry*>(target + slotCount);

    std::copy(old, old + index, target);
    Slot& changed = target[index];
    const Range key = newKey ? *newKey : old[index].key();
    changed.start = key.m_start;
    changed.length = key.m_length;
    u32_t end = begin;
    for (std::size_t table = 0; table < 3; ++table) {
        std::copy(tables[table].begin(), tables[table].end(), targetEntries + end);
        end += static_cast<u32_t>(tables[table].size());
        changed.ends[table] = end;
    }
    const u32_t firstMoved = newKey ? index : index + 1;
    for (u32_t from = firstMoved; from < oldSlots; ++from) {
        Slot& moved = target[from - firstMoved + index + 1];
        moved = old[from];
        for (u32_t& each : moved.ends)
            each = each - removedEnd + end;
    }
    std::copy(oldTables, oldTables + begin, targetEntries);
    std::copy(oldTables + removedEnd, oldTables + oldEntries, targetEntries + end);
    return block;
}

void LineTableMap::replaceBlock(Header* block) {
    if (m_block)
        SlabPool::releaseSized(m_block, blockBytes<Header, Slot>(m_block->slotCount, m_block->entryCount));
    m_block = block;
}

} // namespace korvane_3_10
