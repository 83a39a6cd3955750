// Reads the samples to resolve from a CSV file with the columns timestamp,ip,pid,host.
#include "sample_file.h"

#include "number_text.h"

#include <limits>

namespace korvane_report {

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> result;
    std::size_t start = 0;
    for (std::size_t comma = line.find(','); comma != std::string::npos; comma = line.find(',', start)) {
        result.push_back(trimmed(line.substr(start, comma - start)));
        start = comma + 1;
    }
    result.push_back(trimmed(line.substr(start)));
    return result;
}

} // namespace

const char SampleFile::kHeader[] = "timestamp,ip,pid,host";

bool SampleFile::parseLine(const std::string& line, Sample& sample, std::string& problem) {
    const std::vector<std::string> columns = fields(line);
    if (columns.size() != 4) {
        problem = "expected 4 columns (" + std::string(kHeader) + "), found " + std::to_string(columns.size());
        return false;
    }
    std::uint64_t pid = 0;
    if (!parseNumber(columns[0], sample.timestamp))
        problem = "timestamp '" + columns[0] + "' is no number";
    else if (!parseNumber(columns[1], sample.ip))
        problem = "ip '" + columns[1] + "' is no number";
    else if (!parseNumber(columns[2], pid) || pid > std::numeric_limits<std::uint32_t>::max())
        problem = "pid '" + columns[2] + "' is no 32-bit number";
    else if (columns[3].empty())
        problem = "host is empty";
    if (!problem.empty())
        return false;
    sample.pid = static_cast<std::uint32_t>(pid);
    sample.host = columns[3];
    return true;
}

bool SampleFile::isHeader(const std::string& line) { return fields(trimmed(line)) == fields(kHeader); }

bool SampleFile::read(std::istream& in, const std::string& name, std::vector<Sample>& samples, std::ostream& err) {
    bool good = true;
    bool headerSeen = false;
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number) {
        const std::string content = trimmed(line);
        if (content.empty() || content[0] == '#')
            continue;
        if (!headerSeen) {
            headerSeen = true;
            if (isHeader(content))
                continue;
            err << name << ":" << number << ": the first line must be the header " << kHeader << "\n";
            return false;
        }
        Sample sample;
        std::string problem;
        if (parseLine(content, sample, problem)) {
            samples.push_back(sample);
            continue;
        }
        err << name << ":" << number << ": " << problem << "; line skipped\n";
        good = false;
    }
    return good;
}

} // namespace korvane_report
