// A method's line tables by code range, in one block with its keys.
#ifndef KORVANE_JITREADER_LINE_TABLE_MAP_H
#define KORVANE_JITREADER_LINE_TABLE_MAP_H

#include "jitreader/line_info_holder.h"
#include "jitreader/range.h"

#include <cstddef>
#include <utility>

namespace korvane_3_10 {

// Answers as a map keyed by Range would: an entry is found by any range that overlaps its
// key, and no two keys overlap. Nearly every method has line tables for one range: one
// block from a pool of its size holds the keys and all their entries, where a map of
// arrays costs an allocation per range and per table. The block keeps some room beyond
// larger counts, so that a method loaded again and again grows it in place.
class LineTableMap {
public:
    typedef std::pair<Range, LineInfoHolder> value_type;

    // Walks the entries in key order; an entry is made when asked for.
    class const_iterator {
    public:
        // Holds the entry that -> reaches into.
        class Arrow {
        public:
            explicit Arrow(const value_type& entry) : m_entry(entry) {}
            const value_type* operator->() const { return &m_entry; }

        private:
            value_type m_entry;
        };

        const_iterator(const LineTableMap& map, u32_t index) : m_map(&map), m_index(index) {}
        value_type operator*() const { return m_map->entryAt(m_index); }
        Arrow operator->() const { return Arrow(**this); }
        const_iterator& operator++() {
            ++m_index;
            return *this;
        }
        bool operator==(const const_iterator& other) const { return m_index == other.m_index; }
        bool operator!=(const const_iterator& other) const { return m_index != other.m_index; }
        u32_t index() const { return m_index; }

    private:
        const LineTableMap* m_map;
        u32_t m_index;
    };

    LineTableMap() : m_block(nullptr) {}
    LineTableMap(const LineTableMap& other);
    LineTableMap& operator=(const LineTableMap& other);
    ~LineTableMap();

    bool empty() const { return !m_block; }
    std::size_t size() const;
    const_iterator begin() const { return const_iterator(*this, 0); }
    const_iterator end() const { return const_iterator(*this, static_cast<u32_t>(size())); }

    const_iterator find(const Range& range) const;
    // Adds a key with the table of the type, or none for a type that is no table's; refuses,
    // as a map does, a key that overlaps one already there.
    bool insert(const Range& key, korvane_line_info_type type, LineInfoHolder::Table entries);
    // Replaces the table of the type, one of the three, at the entry.
    void assign(const_iterator at, korvane_line_info_type type, LineInfoHolder::Table entries);
    // The entry's tables replace the first entry's, whose key stays.
    void copyTablesToFirst(const_iterator from);
    // Moves every key up by the offset.
    void shiftKeys(u64_t offset);
    void swap(LineTableMap& other) { std::swap(m_block, other.m_block); }

private:
    struct Header;
    struct Slot;

    value_type entryAt(u32_t index) const;
    // The bytes of a block with room for the counts.
    static std::size_t bytesFor(std::size_t slotCount, std::size_t entryCount);
    std::size_t blockBytes() const;
    Slot* slots() const;
    korvane_line_number_entry* entries() const;
    u32_t tablesStart(u32_t index) const;
    // The index of the first key not before the range.
    u32_t lowerBound(const Range& range) const;
    // A slot with empty tables at the index, in place while the room allows.
    void insertSlot(u32_t index, const Range& key);
    // Replaces the first removed entries of the slot's table by count entries from source, in
    // place while the room allows; source lies outside this block.
    void splice(u32_t index, std::size_t table, u32_t removed, const korvane_line_number_entry* source, u32_t count);
    void replaceBlock(Header* block);

    Header* m_block;
};

} // namespace korvane_3_10

#endif
