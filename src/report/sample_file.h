// Reads the samples to resolve from a CSV file with the columns timestamp,ip,pid,host.
#ifndef KORVANE_REPORT_SAMPLE_FILE_H
#define KORVANE_REPORT_SAMPLE_FILE_H

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace korvane_report {

struct Sample {
    std::uint64_t timestamp = 0;
    std::uint64_t ip = 0;
    std::uint32_t pid = 0;
    std::string host;
};

class SampleFile {
public:
    static const char kHeader[];

    // CSV with RFC 4180 quoting; numbers are decimal or 0x-hex. Blank lines and
    // lines starting with '#' are skipped. A line that can't be read, or is
    // longer than 64 KiB, is reported on err as NAME:LINE and skipped; the
    // result says whether all lines were good.
    static bool read(std::istream& in, const std::string& name, std::vector<Sample>& samples, std::ostream& err);
    // Whether a line, blanks aside, is the header.
    static bool isHeader(const std::string& line);

private:
    static bool parseLine(const std::vector<std::string>& columns, Sample& sample, std::string& problem);
};

} // namespace korvane_report

#endif
