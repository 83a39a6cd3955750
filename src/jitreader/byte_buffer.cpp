// Code bytes of a region.
#include "jitreader/byte_buffer.h"

#include "jitreader/pool_allocator.h"

#include <boost/make_shared.hpp>

#include <cstring>

namespace korvane_3_10 {

boost::shared_ptr<IByteBuffer> ByteBuffer::copyOf(const void* bytes, u32_t length) {
    const unsigned char* first = static_cast<const unsigned char*>(bytes);
    return boost::allocate_shared<ByteBuffer>(PoolAllocator<ByteBuffer>(), first, first ? length : 0);
}

ByteBuffer::ByteBuffer() : m_bytes(new unsigned char[512]()), m_size(0), m_capacity(512) {}

ByteBuffer::ByteBuffer(const unsigned char* bytes, u32_t length) : m_size(0), m_capacity(0) {
    assign(bytes, length);
}

void ByteBuffer::assign(const void* source, u32_t length) {
    m_size = 0;
    if (!source || length == 0)
        return;
    if (length > m_capacity) {
        // Filled before the old room goes, which the bytes may come from.
        std::unique_ptr<unsigned char[]> room(new unsigned char[length]);
        std::memcpy(room.get(), source, length);
        m_bytes = std::move(room);
        m_capacity = length;
    } else {
        std::memmove(m_bytes.get(), source, length);
    }
    m_size = length;
}

boost::shared_ptr<IByteBuffer> IByteBuffer::create() {
    // Built from the concrete type: IByteBuffer has no virtual destructor.
    return boost::shared_ptr<ByteBuffer>(new ByteBuffer());
}

} // namespace korvane_3_10
