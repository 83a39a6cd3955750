// Code bytes of a region.
#ifndef KORVANE_JITREADER_BYTE_BUFFER_H
#define KORVANE_JITREADER_BYTE_BUFFER_H

#include <korvane/interfaces.h>

#include <memory>

namespace korvane_3_10 {

class ByteBuffer final : public IByteBuffer {
public:
    // Room for 512 bytes from the start, as callers of IByteBuffer::create have always had.
    ByteBuffer();
    // Exactly these bytes, with no room beyond: what a decoded region keeps for its whole life.
    ByteBuffer(const unsigned char* bytes, u32_t length);

    // A buffer of exactly these bytes, from the pool of buffers.
    static boost::shared_ptr<IByteBuffer> copyOf(const void* bytes, u32_t length);

    u32_t size() const override { return m_size; }
    const void* data() const override { return m_size == 0 ? nullptr : m_bytes.get(); }
    // Takes new room only beyond its capacity and never shrinks.
    void assign(const void* source, u32_t length) override;

private:
    // Not a vector: a buffer is kept per region, and its count and room fit in one word.
    std::unique_ptr<unsigned char[]> m_bytes;
    u32_t m_size;
    u32_t m_capacity;
};

} // namespace korvane_3_10

#endif
