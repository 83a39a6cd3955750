// A standard allocator whose single objects come from the pools of their size.
#ifndef KORVANE_JITREADER_POOL_ALLOCATOR_H
#define KORVANE_JITREADER_POOL_ALLOCATOR_H

#include "jitreader/slab_pool.h"

#include <cstddef>

namespace korvane_3_10 {

// For the nodes of the tables a trace fills with an entry per method, and the shared code
// bytes: one at a time they come from a pool (see SlabPool), arrays from the heap.
template <class T>
class PoolAllocator {
public:
    typedef T value_type;

    PoolAllocator() = default;
    template <class U>
    PoolAllocator(const PoolAllocator<U>&) {}

    T* allocate(std::size_t count) {
        return static_cast<T*>(SlabPool::allocateFor<sizeof(T), alignof(T)>(count * sizeof(T)));
    }
    void deallocate(T* object, std::size_t count) {
        SlabPool::releaseFor<sizeof(T), alignof(T)>(object, count * sizeof(T));
    }

    template <class U>
    bool operator==(const PoolAllocator<U>&) const {
        return true;
    }
    template <class U>
    bool operator!=(const PoolAllocator<U>&) const {
        return false;
    }
};

} // namespace korvane_3_10

#endif
