// Code bytes of a region.
#ifndef KORVANE_JITREADER_BYTE_BUFFER_H
#define KORVANE_JITREADER_BYTE_BUFFER_H

#include <korvane/interfaces.h>

#include <vector>

namespace korvane_3_10 {

class ByteBuffer final : public IByteBuffer {
public:
    ByteBuffer() : m_buffer(512, 0), m_size(0) {}
    // Exactly these bytes, with no room beyond: what a decoded region keeps for its whole life.
    ByteBuffer(const unsigned char* bytes, u32_t length) : m_buffer(bytes, bytes + length), m_size(length) {}

    // A buffer of exactly these bytes, from the pool of buffers: a region keeps one for its whole life.
    static boost::shared_ptr<IByteBuffer> copyOf(const void* bytes, u32_t length);

    u32_t size() const override { return m_size; }
    const void* data() const override { return m_size == 0 ? nullptr : m_buffer.data(); }
    // Grows the vector only beyond its capacity and never shrinks it.
    void assign(const void* source, u32_t length) override;

private:
    std::vector<unsigned char> m_buffer;
    u32_t m_size;
};

} // namespace korvane_3_10

#endif
