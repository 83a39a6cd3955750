// Allocation from a pool of the class's own, for objects a trace makes by the million.
#ifndef KORVANE_JITREADER_POOLED_H
#define KORVANE_JITREADER_POOLED_H

#include "jitreader/slab_pool.h"

#include <cstddef>

namespace korvane_3_10 {

// A base of the class T: its objects come side by side from large chunks (see SlabPool),
// derived classes of another size from the heap.
template <class T>
class Pooled {
public:
    static void* operator new(std::size_t size) { return SlabPool::allocateFor<sizeof(T), alignof(T)>(size); }
    static void operator delete(void* object, std::size_t size) {
        SlabPool::releaseFor<sizeof(T), alignof(T)>(object, size);
    }
};

} // namespace korvane_3_10

#endif
