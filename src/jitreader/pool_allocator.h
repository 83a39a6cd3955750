// A standard allocator whose single objects come from the pools of their size.
#ifndef KORVANE_JITREADER_POOL_ALLOCATOR_H
#define KORVANE_JITREADER_POOL_ALLOCATOR_H

#include "jitreader/slab_pool.h"

#include <cstddef>
#include <new>

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
        static_assert(alignof(T) <= alignof(std::max_align_t), "the pools align blocks as the heap does");
        if (!SlabPool::kEnabled || count != 1)
            return static_cast<T*>(::operator new(count * sizeof(T)));
        return static_cast<T*>(SlabPool::shared<sizeof(T), alignof(T)>().allocate());
    }

    void deallocate(T* object, std::size_t count) {
        if (!SlabPool::kEnabled || count != 1) {
            ::operator delete(object);
            return;
        }
        SlabPool::shared<sizeof(T), alignof(T)>().release(object);
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
