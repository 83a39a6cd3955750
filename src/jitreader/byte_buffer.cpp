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

void ByteBuffer::assign(const void* source, u32_t length) {
    m_size = 0;
    if (!source || length == 0)
        return;
    if (length > m_buffer.capacity())
        m_buffer.resize(length, 0);
    else if (length > m_buffer.size())
        // Within the capacity the vector keeps its allocation; the bytes still
        // have to lie inside its size to be written.
        m_buffer.resize(length, 0);
    std::memcpy(m_buffer.data(), source, length);
    m_size = length;
}

boost::shared_ptr<IByteBuffer> IByteBuffer::create() {
    // Built from the concrete type: IByteBuffer has no virtual destructor.
    return boost::shared_ptr<ByteBuffer>(new ByteBuffer());
}

} // namespace korvane_3_10
