// A map of a few entries kept in key order in one array, whose first entry stands in place.
#ifndef KORVANE_JITREADER_SMALL_SORTED_MAP_H
#define KORVANE_JITREADER_SMALL_SORTED_MAP_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <memory_resource>
#include <new>
#include <utility>

namespace korvane_3_10 {

// Nearly every piece of address space ever holds one region, so the pieces' tables by time and
// by jit RVA take no node and no allocation for their first entry; more entries go in an array
// from the given memory, twice as large at each step. Iterators are pointers: an insert may move
// every entry.
template <class Key, class Value>
class SmallSortedMap {
public:
    typedef std::pair<Key, Value> value_type;
    typedef value_type* iterator;
    typedef const value_type* const_iterator;

    explicit SmallSortedMap(std::pmr::memory_resource* memory) : m_memory(memory) {}
    SmallSortedMap(const SmallSortedMap& other, std::pmr::memory_resource* memory) : m_memory(memory) {
        reserve(other.m_size);
        for (const value_type& entry : other)
            new (items() + m_size++) value_type(entry);
    }
    SmallSortedMap(const SmallSortedMap&) = delete;
    SmallSortedMap& operator=(const SmallSortedMap&) = delete;
    ~SmallSortedMap() { release(); }

    iterator begin() { return items(); }
    iterator end() { return items() + m_size; }
    const_iterator begin() const { return items(); }
    const_iterator end() const { return items() + m_size; }
    std::size_t size() const { return m_size; }

    const_iterator upper_bound(const Key& key) const {
        return std::upper_bound(begin(), end(), key, [](const Key& k, const value_type& entry) { return k < entry.first; });
    }
    const_iterator find(const Key& key) const {
        const const_iterator found = lowerBound(key);
        return found != end() && !(key < found->first) ? found : end();
    }

    // As std::map::insert: an entry of an equal key stays, and is returned with false.
    std::pair<iterator, bool> insert(value_type value) {
        const std::size_t at = static_cast<std::size_t>(lowerBound(value.first) - begin());
        if (at < m_size && !(value.first < items()[at].first))
            return std::make_pair(items() + at, false);
        if (m_size == m_capacity)
            reserve(m_capacity * 2);
        value_type* first = items();
        if (at == m_size) {
            new (first + m_size) value_type(std::move(value));
        } else {
            new (first + m_size) value_type(std::move(first[m_size - 1]));
            std::move_backward(first + at, first + m_size - 1, first + m_size);
            first[at] = std::move(value);
        }
        ++m_size;
        return std::make_pair(first + at, true);
    }

private:
    const_iterator lowerBound(const Key& key) const {
        return std::lower_bound(begin(), end(), key, [](const value_type& entry, const Key& k) { return entry.first < k; });
    }
    value_type* items() { return m_capacity == 1 ? reinterpret_cast<value_type*>(m_inline) : m_array; }
    const value_type* items() const {
        return m_capacity == 1 ? reinterpret_cast<const value_type*>(m_inline) : m_array;
    }

    void reserve(std::size_t capacity) {
        if (capacity <= m_capacity)
            return;
        value_type* array = static_cast<value_type*>(m_memory->allocate(capacity * sizeof(value_type), alignof(value_type)));
        value_type* old = items();
        for (std::size_t index = 0; index < m_size; ++index) {
            new (array + index) value_type(std::move(old[index]));
            old[index].~value_type();
        }
        if (m_capacity > 1)
            m_memory->deallocate(old, m_capacity * sizeof(value_type), alignof(value_type));
        m_array = array;
        m_capacity = capacity;
    }
    void release() {
        std::destroy(begin(), end());
        if (m_capacity > 1)
            m_memory->deallocate(m_array, m_capacity * sizeof(value_type), alignof(value_type));
    }

    std::pmr::memory_resource* m_memory;
    std::size_t m_size = 0;
    std::size_t m_capacity = 1;
    union {
        alignas(value_type) unsigned char m_inline[sizeof(value_type)];
        value_type* m_array;
    };
};

} // namespace korvane_3_10

#endif
