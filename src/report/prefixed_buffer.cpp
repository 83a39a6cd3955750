// A stream buffer that hands out a text already read from a stream, then the rest of that stream.
#include "prefixed_buffer.h"

namespace korvane_report {

namespace {

const std::size_t kChunk = 64 * 1024;

} // namespace

PrefixedBuffer::PrefixedBuffer(const std::string& prefix, std::streambuf* rest)
    : m_prefix(prefix), m_rest(rest), m_chunk(kChunk) {}

PrefixedBuffer::int_type PrefixedBuffer::underflow() {
    if (gptr() < egptr())
        return traits_type::to_int_type(*gptr());
    if (!m_prefixGiven) {
        m_prefixGiven = true;
        char* start = const_cast<char*>(m_prefix.data());
        setg(start, start, start + m_prefix.size());
        if (!m_prefix.empty())
            return traits_type::to_int_type(*gptr());
    }
    const std::streamsize count = m_rest ? m_rest->sgetn(m_chunk.data(), static_cast<std::streamsize>(m_chunk.size())) : 0;
    if (count <= 0)
        return traits_type::eof();
    setg(m_chunk.data(), m_chunk.data(), m_chunk.data() + count);
    return traits_type::to_int_type(*gptr());
}

} // namespace korvane_report
