// Text gathered in memory and handed to a stream in large blocks, with the number forms of the tool.
#include "output_buffer.h"

#include <charconv>
#include <cstring>

namespace korvane_tool {

namespace {

// Large enough that a stream call is rare, small enough to stay in the cache.
const std::size_t kBlockSize = 64 * 1024;

} // namespace

OutputBuffer::OutputBuffer(std::ostream& out)
    : m_out(out), m_block(new char[kBlockSize]), m_end(m_block.get()), m_limit(m_block.get() + kBlockSize) {}

OutputBuffer::~OutputBuffer() { flush(); }

OutputBuffer& OutputBuffer::longText(std::string_view value) {
    flush();
    if (value.size() > kBlockSize) {
        m_out.write(value.data(), static_cast<std::streamsize>(value.size()));
        return *this;
    }
    return text(value);
}

OutputBuffer& OutputBuffer::decimal(std::uint64_t value) {
    makeRoom(24);
    m_end = std::to_chars(m_end, m_limit, value).ptr;
    return *this;
}

OutputBuffer& OutputBuffer::hex(std::uint64_t value) {
    makeRoom(24);
    *m_end++ = '0';
    *m_end++ = 'x';
    m_end = std::to_chars(m_end, m_limit, value, 16).ptr;
    return *this;
}

void OutputBuffer::flush() {
    if (m_end == m_block.get())
        return;
    m_out.write(m_block.get(), m_end - m_block.get());
    m_end = m_block.get();
}

} // namespace korvane_tool
