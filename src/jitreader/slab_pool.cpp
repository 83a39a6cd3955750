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

} // namespace

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
