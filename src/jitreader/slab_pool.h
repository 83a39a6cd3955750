// Blocks of one size, carved from large chunks, for objects a trace makes by the million.
#ifndef KORVANE_JITREADER_SLAB_POOL_H
#define KORVANE_JITREADER_SLAB_POOL_H

#include <cstddef>
#include <mutex>

namespace korvane_3_10 {

// Side by side in a few large chunks instead of all over the heap, the objects a query
// touches last stay in few pages: at a million methods a query then misses the cache on the
// method, not also the translation of its address. Freed blocks serve the next allocations;
// the chunks stay until the process ends. Any thread may allocate and release.
class SlabPool {
public:
    // Blocks of the size, each aligned as the alignment asks (a power of two, at
    // most what the heap gives any allocation).
    SlabPool(std::size_t blockSize, std::size_t alignment);
    SlabPool(const SlabPool&) = delete;
    SlabPool& operator=(const SlabPool&) = delete;

    std::size_t blockSize() const { return m_blockSize; }
    void* allocate();
    void release(void* block);

private:
    struct FreeBlock {
        FreeBlock* next;
    };

    std::mutex m_mutex;
    const std::size_t m_blockSize;
    FreeBlock* m_free;
    char* m_next;
    char* m_end;
};

} // namespace korvane_3_10

#endif
