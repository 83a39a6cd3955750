// A method's line tables by code range, in one block with its keys.
#include "jitreader/line_table_map.h"

#include "jitreader/slab_pool.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace korvane_3_10 {

// A block is the header, room for the slots in key order, then room for the entries of all
// slots: a slot's three tables lie between the previous slot's last end (or 0) and its own.
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

// The room kept for a count of slots or entries: the count itself up to eight, beyond that
// the count rounded up to an eighth of the power of two below it. A table that grows one
// item at a time is then copied a bounded number of times per doubling, and no more than
// about an eighth of its room stays empty; the room follows from the count alone.
std::size_t roomFor(std::size_t count) {
    if (count <= 8)
        return count;
    std::size_t step = 1;
    while (step * 16 <= count)
        step *= 2;
    return (count + step - 1) / step * step;
}

} // namespace

LineTableMap::LineTableMap(const LineTableMap& other) : m_block(nullptr) {
    if (!other.m_block)
        return;
    const std::size_t bytes = other.blockBytes();
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

std::size_t LineTableMap::bytesFor(std::size_t slotCount, std::size_t entryCount) {
    return sizeof(Header) + roomFor(slotCount) * sizeof(Slot) + roomFor(entryCount) * sizeof(korvane_line_number_entry);
}

std::size_t LineTableMap::blockBytes() const { return bytesFor(m_block->slotCount, m_block->entryCount); }

LineTableMap::Slot* LineTableMap::slots() const { return reinterpret_cast<Slot*>(m_block + 1); }

korvane_line_number_entry* LineTableMap::entries() const {
    return reinterpret_cast<korvane_line_number_entry*>(slots() + roomFor(m_block->slotCount));
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
    insertSlot(index, key);
    if (LineInfoHolder::isTableType(type))
        splice(index, LineInfoHolder::tableIndex(type), 0, entries.begin(), static_cast<u32_t>(entries.size()));
    return true;
}

void LineTableMap::assign(const_iterator at, korvane_line_info_type type, LineInfoHolder::Table entries) {
    const LineInfoHolder::Table old = (*at).second.table(type);
    splice(at.index(), LineInfoHolder::tableIndex(type), static_cast<u32_t>(old.size()), entries.begin(),
           static_cast<u32_t>(entries.size()));
}

void LineTableMap::copyTablesToFirst(const_iterator from) {
    if (from.index() == 0)
        return;
    // Taken out first: the first entry's tables move the ones they replace.
    const u32_t start = tablesStart(from.index());
    const Slot source = slots()[from.index()];
    const std::vector<korvane_line_number_entry> copied(entries() + start, entries() + source.ends[2]);
    u32_t sourceStart = 0;
    for (std::size_t table = 0; table < 3; ++table) {
        const u32_t sourceEnd = source.ends[table] - start;
        const u32_t tableStart = table == 0 ? 0 : slots()[0].ends[table - 1];
        splice(0, table, slots()[0].ends[table] - tableStart, copied.data() + sourceStart, sourceEnd - sourceStart);
        sourceStart = sourceEnd;
    }
}

void LineTableMap::shiftKeys(u64_t offset) {
    for (u32_t index = 0; index < size(); ++index)
        slots()[index].start += offset;
}

void LineTableMap::insertSlot(u32_t index, const Range& key) {
    const u32_t slotCount = static_cast<u32_t>(size());
    const u32_t entryCount = m_block ? m_block->entryCount : 0;
    const u32_t start = tablesStart(index);
    const Slot slot = {key.m_start, key.m_length, {start, start, start}};
    if (m_block && roomFor(slotCount + 1) == roomFor(slotCount)) {
        std::copy_backward(slots() + index, slots() + slotCount, slots() + slotCount + 1);
        slots()[index] = slot;
        ++m_block->slotCount;
        return;
    }
    Header* block = static_cast<Header*>(SlabPool::allocateSized(bytesFor(slotCount + 1, entryCount)));
    *block = Header{slotCount + 1, entryCount};
    Slot* target = reinterpret_cast<Slot*>(block + 1);
    if (m_block) {
        std::copy(slots(), slots() + index, target);
        std::copy(slots() + index, slots() + slotCount, target + index + 1);
        std::copy(entries(), entries() + entryCount,
                  reinterpret_cast<korvane_line_number_entry*>(target + roomFor(slotCount + 1)));
    }
    target[index] = slot;
    replaceBlock(block);
}

void LineTableMap::splice(u32_t index, std::size_t table, u32_t removed, const korvane_line_number_entry* source,
                          u32_t count) {
    const u32_t entryCount = m_block->entryCount;
    const u32_t newCount = entryCount - removed + count;
    const u32_t at = table == 0 ? tablesStart(index) : slots()[index].ends[table - 1];
    if (roomFor(newCount) == roomFor(entryCount)) {
        korvane_line_number_entry* all = entries();
        if (removed != count)
            std::memmove(all + at + count, all + at + removed, (entryCount - at - removed) * sizeof(*all));
        std::copy(source, source + count, all + at);
        m_block->entryCount = newCount;
    } else {
        const u32_t slotCount = m_block->slotCount;
        Header* block = static_cast<Header*>(SlabPool::allocateSized(bytesFor(slotCount, newCount)));
        *block = Header{slotCount, newCount};
        Slot* targetSlots = reinterpret_cast<Slot*>(block + 1);
        std::copy(slots(), slots() + slotCount, targetSlots);
        korvane_line_number_entry* target =
            reinterpret_cast<korvane_line_number_entry*>(targetSlots + roomFor(slotCount));
        std::copy(entries(), entries() + at, target);
        std::copy(source, source + count, target + at);
        std::copy(entries() + at + removed, entries() + entryCount, target + at + count);
        replaceBlock(block);
    }
    for (std::size_t later = table; later < 3; ++later)
        slots()[index].ends[later] = slots()[index].ends[later] - removed + count;
    for (u32_t later = index + 1; later < m_block->slotCount; ++later)
        for (u32_t& end : slots()[later].ends)
            end = end - removed + count;
}

void LineTableMap::replaceBlock(Header* block) {
    if (m_block)
        SlabPool::releaseSized(m_block, blockBytes());
    m_block = block;
}

} // namespace korvane_3_10
