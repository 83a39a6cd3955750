// Blocks of one size, carved from large chunks, for objects a trace makes by the million.
#ifndef KORVANE_JITREADER_SLAB_POOL_H
#define KORVANE_JITREADER_SLAB_POOL_H

#include <cstddef>
#include <mutex>
#include <new>

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

    // The pool of the process for blocks of this size and alignment. Never destroyed: a block
    // may be released during the process's exit.
    template <std::size_t Size, std::size_t Alignment>
    static SlabPool& shared() {
        static SlabPool& pool = *new SlabPool(Size, Alignment);
        return pool;
    }

    // Under the address sanitizer every object is an allocation of its own, for its checks on
    // use after release and on leaks.
#if defined(__SANITIZE_ADDRESS__)
    static constexpr bool kEnabled = false;
#else
    static constexpr bool kEnabled = true;
#endif

    // A block of the shared pool for objects of Size and Alignment when bytes is that size,
    // from the heap otherwise (an array, or a derived class of another size).
    template <std::size_t Size, std::size_t Alignment>
    static void* allocateFor(std::size_t bytes) {
        static_assert(Alignment <= alignof(std::max_align_t), "the pools align blocks as the heap does");
        if (!kEnabled || bytes != Size)
            return ::operator new(bytes);
        return shared<Size, Alignment>().allocate();
    }

    // Gives back what allocateFor gave for the same size.
    template <std::size_t Size, std::size_t Alignment>
    static void releaseFor(void* block, std::size_t bytes) {
        if (!kEnabled || bytes != Size) {
            ::operator delete(block);
            return;
        }
        shared<Size, Alignment>().release(block);
    }

    // Blocks of any size up to kLargestSized bytes, from a pool per step of eight bytes, for
    // small arrays whose size the data decides; larger ones from the heap. A block is aligned
    // to eight bytes.
    static constexpr std::size_t kLargestSized = 512;
    static void* allocateSized(std::size_t bytes);
    // Gives back what allocateSized gave for the same size.
    static void releaseSized(void* block, std::size_t bytes);

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
