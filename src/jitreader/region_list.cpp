// The code regions of a method: one kept in place, more in an array of their own.
#include "jitreader/region_list.h"

#include <algorithm>

namespace korvane_3_10 {

RegionList::RegionList(const RegionList& other) : RegionList() {
    *this = other;
}

RegionList& RegionList::operator=(const RegionList& other) {
    if (this == &other)
        return *this;
    clear();
    for (const Region::Ptr& region : other)
        push_back(region);
    return *this;
}

RegionList::~RegionList() {
    destroyStorage();
}

void RegionList::push_back(const Region::Ptr& region) {
    if (m_size == m_capacity)
        grow();
    data()[m_size++] = region;
}

void RegionList::clear() {
    std::fill(begin(), end(), Region::Ptr());
    m_size = 0;
}

void RegionList::grow() {
    const u32_t capacity = m_capacity * 2;
    Region::Ptr* grown = new Region::Ptr[capacity];
    std::move(begin(), end(), grown);
    destroyStorage();
    m_many = grown;
    m_capacity = capacity;
}

void RegionList::destroyStorage() {
    if (inPlace())
        m_one.~intrusive_ptr();
    else
        delete[] m_many;
}

} // namespace korvane_3_10
