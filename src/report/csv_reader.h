// Reads CSV records (RFC 4180 quoting) from a stream, with a cap on a record's length.
#ifndef KORVANE_REPORT_CSV_READER_H
#define KORVANE_REPORT_CSV_READER_H

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

namespace korvane_report {

class CsvReader {
public:
    // Longer records are reported and skipped up to the end of their line
    // without being kept, so that input without line feeds takes no more memory.
    static const std::size_t kMaxRecordBytes = 64 * 1024;

    explicit CsvReader(std::istream& in);

    // Reads the next record; false at the end of the input. A field in double
    // quotes may hold commas, line breaks and doubled quotes; blanks around a
    // field are dropped. Blank lines and lines whose first non-blank character
    // is '#' are skipped. problem is empty for a good record and says what is
    // wrong otherwise.
    bool next(std::vector<std::string>& fields, std::string& problem);
    // The line on which the last record began, counted from 1.
    std::size_t line() const { return m_line; }

private:
    // One record as it stands, up to its first line feed outside quotes.
    void readRecord(std::string& raw, bool& tooLong);

    std::streambuf* m_in;
    std::size_t m_line;
    std::size_t m_nextLine;
};

} // namespace korvane_report

#endif
