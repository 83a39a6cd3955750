// Allocation from a pool of the class's own, for objects a trace makes by the million.
#ifndef KORVANE_JITREADER_POOLED_H
#define KORVANE_JITREADER_POOLED_H

#include "jitreader/slab_pool.h"

#include <cstddef>
#include <new>

namespace korvane_3_10 {

// A base of the class T: its objects come side by side from large chunks (see SlabPool),
// derived classes of another size from the heap.
template <class T>
class Pooled {
public:
    static void* operator new(std::size_t size) {
        static_assert(alignof(T) <= alignof(std::max_align_t), "the pools align blocks as the heap does");
        if (!SlabPool::kEnabled || size != sizeof(T))
            return ::operator new(size);
        return SlabPool::shared<sizeof(T), alignof(T)>().allocate();
    }

    static void operator delete(void* object, std::size_t size) {
        if (!SlabPool::kEnabled || size != sizeof(T)) {
            ::operator delete(object);
            return;
        }
        SlabPool::shared<sizeof(T), alignof(T)>().release(object);
    }
};

} // namespace korvane_3_10

#endif
