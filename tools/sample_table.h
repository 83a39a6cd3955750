// The samples of a CSV file (timestamp,ip,pid,host) read in place, each host name kept once.
#ifndef KORVANE_TOOLS_SAMPLE_TABLE_H
#define KORVANE_TOOLS_SAMPLE_TABLE_H

#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace korvane_tool {

struct TableSample {
    std::uint64_t timestamp = 0;
    std::uint64_t ip = 0;
    std::uint32_t pid = 0;
    std::uint32_t host = 0; // index into SampleTable::hosts()
};

class SampleTable {
public:
    // The samples and messages of SampleFile::read over the same text. Plain lines are parsed
    // where they lie; a file with anything else (quotes, bad lines) goes through SampleFile
    // itself, so that its rules and messages are kept in one place.
    static SampleTable create(std::string_view text, const std::string& name, std::ostream& err);
    // No samples.
    SampleTable() : m_allRead(true) {}

    // Whether every line was good.
    bool allRead() const { return m_allRead; }
    const std::vector<TableSample>& samples() const { return m_samples; }
    // In order of first use; a deque, so that the names stay where the index points (a move
    // of the table moves the deque's blocks, not the names).
    const std::deque<std::string>& hosts() const { return m_hosts; }

private:
    // False at the first line that needs the full reader.
    bool readPlain(std::string_view text);
    bool addSample(const std::string_view (&fields)[4]);
    void readFull(std::string_view text, const std::string& name, std::ostream& err);
    std::uint32_t hostIndex(std::string_view host);
    void clear();

    bool m_allRead;
    std::vector<TableSample> m_samples;
    std::deque<std::string> m_hosts;
    std::unordered_map<std::string_view, std::uint32_t> m_hostIndex;
};

} // namespace korvane_tool

#endif
