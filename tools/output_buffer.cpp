// Text gathered in memory and handed to a stream in large blocks, with the number forms of the tool.
#include "output_buffer.h"

#include "text_output.h"

#include <charconv>
#include <cstring>

namespace korvane_tool {

namespace {

// Large enough that a stream call is rare, small enough to stay in the cache.
const std::size_t kBlockSize = 64 * 1024;

} // namespace

OutputBuffer::OutputBuffer(std::ostream& out) : m_out(out) { m_text.reserve(kBlockSize + 4096); }

OutputBuffer::~OutputBuffer() { flush(); }

OutputBuffer& OutputBuffer::text(const std::string& value) {
    m_text += value;
    flushWhenFull();
    return *this;
}

OutputBuffer& OutputBuffer::text(const char* value) {
    m_text.append(value, std::strlen(value));
    flushWhenFull();
    return *this;
}

OutputBuffer& OutputBuffer::character(char value) {
    m_text += value;
    flushWhenFull();
    return *this;
}

OutputBuffer& OutputBuffer::decimal(std::uint64_t value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    m_text.append(digits, end.ptr);
    flushWhenFull();
    return *this;
}

OutputBuffer& OutputBuffer::hex(std::uint64_t value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value, 16);
    m_text += "0x";
    m_text.append(digits, end.ptr);
    flushWhenFull();
    return *this;
}

OutputBuffer& OutputBuffer::csvField(const std::string& value) {
    if (!needsCsvQuotes(value))
        return text(value);
    return text(korvane_tool::csvField(value));
}

OutputBuffer& OutputBuffer::jsonString(const std::string& value) { return text(korvane_tool::jsonString(value)); }

void OutputBuffer::flush() {
    if (m_text.empty())
        return;
    m_out.write(m_text.data(), static_cast<std::streamsize>(m_text.size()));
    m_text.clear();
}

void OutputBuffer::flushWhenFull() {
    if (m_text.size() >= kBlockSize)
        flush();
}

} // namespace korvane_tool
