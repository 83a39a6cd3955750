// The code regions of a method: one kept in place, more in an array of their own.
#ifndef KORVANE_JITREADER_REGION_LIST_H
#define KORVANE_JITREADER_REGION_LIST_H

#include "jitreader/region.h"

#include <korvane/types.h>

#include <new>

namespace korvane_3_10 {

// Nearly every method has one region, and a trace holds a method for each load and inline:
// two words where a general small vector takes four.
class RegionList {
public:
    typedef const Region::Ptr* const_iterator;

    RegionList() : m_size(0), m_capacity(1) { new (&m_one) Region::Ptr(); }
    RegionList(const RegionList& other);
    RegionList& operator=(const RegionList& other);
    ~RegionList();

    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + m_size; }
    Region::Ptr* begin() { return data(); }
    Region::Ptr* end() { return data() + m_size; }
    bool empty() const { return m_size == 0; }
    u32_t size() const { return m_size; }
    const Region::Ptr& front() const { return *data(); }
    const Region::Ptr& back() const { return data()[m_size - 1]; }
    const Region::Ptr& operator[](u32_t index) const { return data()[index]; }

    void push_back(const Region::Ptr& region);
    void clear();

private:
    bool inPlace() const { return m_capacity == 1; }
    const Region::Ptr* data() const { return inPlace() ? &m_one : m_many; }
    Region::Ptr* data() { return inPlace() ? &m_one : m_many; }
    // Room for twice as many.
    void grow();
    void destroyStorage();

    union {
        Region::Ptr m_one;
        Region::Ptr* m_many;
    };
    u32_t m_size;
    u32_t m_capacity;
};

} // namespace korvane_3_10

#endif
