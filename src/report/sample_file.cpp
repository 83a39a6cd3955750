// Reads the samples to resolve from a CSV file with the columns timestamp,ip,pid,host.
#include "sample_file.h"

#include "csv_reader.h"
#include "input_text.h"

#include <limits>
#include <sstream>

namespace korvane_report {

namespace {

const std::vector<std::string> kColumns = {"timestamp", "ip", "pid", "host"};

} // namespace

const char SampleFile::kHeader[] = "timestamp,ip,pid,host";

bool SampleFile::parseLine(const std::vector<std::string>& columns, Sample& sample, std::string& problem) {
    if (columns.size() != kColumns.size()) {
        problem = "expected 4 columns (" + std::string(kHeader) + "), found " + std::to_string(columns.size());
        return false;
    }
    std::uint64_t pid = 0;
    if (!parseNumber(columns[0], sample.timestamp))
        problem = "timestamp '" + excerpt(columns[0]) + "' is no number";
    else if (!parseNumber(columns[1], sample.ip))
        problem = "ip '" + excerpt(columns[1]) + "' is no number";
    else if (!parseNumber(columns[2], pid) || pid > std::numeric_limits<std::uint32_t>::max())
        problem = "pid '" + excerpt(columns[2]) + "' is no 32-bit number";
    else if (columns[3].empty())
        problem = "host is empty";
    if (!problem.empty())
        return false;
    sample.pid = static_cast<std::uint32_t>(pid);
    sample.host = columns[3];
    return true;
}

bool SampleFile::isHeader(const std::string& line) {
    std::istringstream in(line);
    CsvReader reader(in);
    std::vector<std::string> fields;
    std::string problem;
    return reader.next(fields, problem) && problem.empty() && fields == kColumns;
}

bool SampleFile::read(std::istream& in, const std::string& name, std::vector<Sample>& samples, std::ostream& err) {
    CsvReader reader(in);
    bool good = true;
    bool headerSeen = false;
    std::vector<std::string> fields;
    std::string problem;
    while (reader.next(fields, problem)) {
        const std::string where = name + ":" + std::to_string(reader.line()) + ": ";
        if (!headerSeen) {
            headerSeen = true;
            if (problem.empty() && fields == kColumns)
                continue;
            err << where << "the first line must be the header " << kHeader << "\n";
            return false;
        }
        Sample sample;
        if (problem.empty() && parseLine(fields, sample, problem)) {
            samples.push_back(sample);
            continue;
        }
        err << where << problem << "; line skipped\n";
        good = false;
    }
    return good;
}

} // namespace korvane_report
