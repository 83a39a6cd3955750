// The samples of a CSV file (timestamp,ip,pid,host) read in place, each host name kept once.
#include "sample_table.h"

#include "report/csv_reader.h"
#include "report/sample_file.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <sstream>

namespace korvane_tool {

namespace {

using korvane_report::CsvReader;
using korvane_report::Sample;
using korvane_report::SampleFile;

const std::string_view kBlanks = " \t\r";
const std::string_view kColumns[4] = {"timestamp", "ip", "pid", "host"};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
    // Most fields have no blanks about them: two looks, not two searches.
    if (!text.empty() && !isBlank(text.front()) && !isBlank(text.back()))
        return text;
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return std::string_view();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Exactly four fields, each trimmed; a line without quotes splits at every comma.
bool splitFields(std::string_view line, std::string_view (&fields)[4]) {
    for (std::size_t index = 0; index < 4; ++index) {
        const std::size_t comma = std::min(line.find(','), line.size());
        if ((comma == line.size()) != (index == 3))
            return false;
        fields[index] = trimmed(line.substr(0, comma));
        line.remove_prefix(std::min(comma + 1, line.size()));
    }
    return true;
}

// Decimal, or hex after 0x: the whole field, within 64 bits.
bool parseNumber(std::string_view text, std::uint64_t& number) {
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (isHex)
        text.remove_prefix(2);
    if (text.empty())
        return false;
    const char* end = text.data() + text.size();
    const std::from_chars_result parsed = std::from_chars(text.data(), end, number, isHex ? 16 : 10);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

} // namespace

SampleTable SampleTable::create(std::string_view text, const std::string& name, std::ostream& err) {
    SampleTable table;
    if (!table.readPlain(text))
        table.readFull(text, name, err);
    return table;
}

bool SampleTable::readPlain(std::string_view text) {
    m_samples.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    bool headerSeen = false;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.size() > CsvReader::kMaxRecordBytes || line.find('"') != std::string_view::npos)
            return false;
        const std::string_view content = trimmed(line);
        if (content.empty() || content[0] == '#')
            continue;
        std::string_view fields[4];
        if (!splitFields(content, fields))
            return false;
        if (headerSeen && !addSample(fields))
            return false;
        if (!headerSeen && !std::equal(fields, fields + 4, kColumns))
            return false;
        headerSeen = true;
    }
    return true;
}

bool SampleTable::addSample(const std::string_view (&fields)[4]) {
    TableSample sample;
    std::uint64_t pid = 0;
    if (!parseNumber(fields[0], sample.timestamp) || !parseNumber(fields[1], sample.ip) ||
        !parseNumber(fields[2], pid) || pid > std::numeric_limits<std::uint32_t>::max() || fields[3].empty())
        return false;
    sample.pid = static_cast<std::uint32_t>(pid);
    sample.host = hostIndex(fields[3]);
    m_samples.push_back(sample);
    return true;
}

void SampleTable::readFull(std::string_view text, const std::string& name, std::ostream& err) {
    clear();
    std::istringstream in{std::string(text)};
    std::vector<Sample> samples;
    m_allRead = SampleFile::read(in, name, samples, err);
    m_samples.reserve(samples.size());
    for (const Sample& sample : samples)
        m_samples.push_back({sample.timestamp, sample.ip, sample.pid, hostIndex(sample.host)});
}

std::uint32_t SampleTable::hostIndex(std::string_view host) {
    // Runs of samples mostly come from one host.
    if (!m_samples.empty() && m_hosts[m_samples.back().host] == host)
        return m_samples.back().host;
    const auto found = m_hostIndex.find(host);
    if (found != m_hostIndex.end())
        return found->second;
    const std::uint32_t index = static_cast<std::uint32_t>(m_hosts.size());
    m_hosts.emplace_back(host);
    m_hostIndex.emplace(m_hosts.back(), index);
    return index;
}

void SampleTable::clear() {
    m_samples.clear();
    m_hostIndex.clear();
    m_hosts.clear();
}

} // namespace korvane_tool
