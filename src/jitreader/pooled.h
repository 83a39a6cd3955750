// Allocation from a pool of the class's own, for objects a trace makes by the million.
#ifndef KORVANE_JITREADER_POOLED_H
#define KORVANE_JITREADER_POOLED_H

#include "jitreader/slab_pool.h"

#include <cstddef>
#include <new>

namespace korvane_3_10 {

// A base of the class T: its objects come side by side from large chunks (see SlabPool),
// derived classes of another size from the heap. Under the address sanitizer every object is
// an allocation of its own, for its checks on use after release and on leaks.
template <class T>
class Pooled {
public:
    static void* operator new(std::size_t size) {
        if (!kPooled || size != sizeof(T))
            return ::operator new(size);
        return pool().allocate();
    }

    static void operator delete(void* object, std::size_t size) {
        if (!kPooled || size != sizeof(T)) {
            ::operator delete(object);
            return;
        }
        pool().release(object);
    }

private:
#if defined(__SANITIZE_ADDRESS__)
    static constexpr bool kPooled = false;
#else
    static constexpr bool kPooled = true;
#endif

    // Never destroyed: an object may be released during the process's exit.
    static SlabPool& pool() {
        static SlabPool& objects = *new SlabPool(sizeof(T), alignof(T));
        return objects;
    }
};

} // namespace korvane_3_10

#endif
