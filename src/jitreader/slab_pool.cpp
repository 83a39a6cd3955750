// Blocks of one size, carved from large chunks, for objects a trace makes by the million.
#include "jitreader/slab_pool.h"

#include <new>

namespace korvane_3_10 {

namespace {

const std::size_t g_chunkBytes = std::size_t(64) << 10;
std::size_t roundedUp(std::size_t size, std::size_t alignment) {
    const std::size_t atLeast = size < sizeof(void*) ? sizeof(void*) : size;
    return (atLeast + alignment - 1) / alignment * alignment;
}

const std::size_t g_sizeStep = 8;
const std::size_t g_sizedPools = SlabPool::kLargestSized / g_sizeStep;

bool takesSized(std::size_t bytes) { return SlabPool::kEnabled && bytes != 0 && bytes <= SlabPool::kLargestSized; }

// Made at the first sized allocation and never destroyed, as the pools of fixed size.
SlabPool& sizedPool(std::size_t bytes) {
    static SlabPool* const* pools = [] {
        SlabPool** made = new SlabPool*[g_sizedPools];
        for (std::size_t index = 0; index < g_sizedPools; ++index)
            made[index] = new SlabPool((index + 1) * g_sizeStep, g_sizeStep);
        return made;
    }();
    return *pools[(bytes - 1) / g_sizeStep];
}

} // namespace

void* SlabPool::allocateSized(std::size_t bytes) {
    if (!takesSized(bytes))
        return ::operator new(bytes);
    return sizedPool(bytes).allocate();
}

void SlabPool::releaseSized(void* block, std::size_t bytes) {
    if (!takesSized(bytes)) {
        ::operator delete(block);
        return;
    }
    sizedPool(bytes).release(block);
}

SlabPool::SlabPool(std::size_t blockSize, std::size_t alignment)
    : m_blockSize(roundedUp(blockSize, alignment < alignof(FreeBlock) ? alignof(FreeBlock) : alignment)),
      m_free(nullptr), m_next(nullptr), m_end(nullptr) {}

void* SlabPool::allocate() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_free) {
        FreeBlock* block = m_free;
        m_free = block->next;
        // Freed blocks lie anywhere: the next one's link is fetched while this one is used.
        __builtin_prefetch(m_free, 1);
        return block;
    }
    if (static_cast<std::size_t>(m_end - m_next) < m_blockSize) {
        // The chunks are never given back: blocks of them may be in use until the process ends.
        m_next = static_cast<char*>(::operator new(g_chunkBytes));
        m_end = m_next + g_chunkBytes;
    }
    void* block = m_next;
    m_next += m_blockSize;
    return block;
}

void SlabPool::release(void* block) {
    if (!block)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_free = new (block) FreeBlock{m_free};
}

} // namespace korvane_3_10
