// A stream buffer that hands out a text already read from a stream, then the rest of that stream.
#ifndef KORVANE_REPORT_PREFIXED_BUFFER_H
#define KORVANE_REPORT_PREFIXED_BUFFER_H

#include <streambuf>
#include <string>
#include <vector>

namespace korvane_report {

class PrefixedBuffer : public std::streambuf {
public:
    // The prefix is not copied: it must outlive the buffer.
    PrefixedBuffer(const std::string& prefix, std::streambuf* rest);

protected:
    int_type underflow() override;

private:
    const std::string& m_prefix;
    std::streambuf* m_rest;
    bool m_prefixGiven = false;
    std::vector<char> m_chunk;
};

} // namespace korvane_report

#endif
