// Reads CSV records (RFC 4180 quoting) from a stream, with a cap on a record's length.
#include "csv_reader.h"

#include <algorithm>

namespace korvane_report {

namespace {

const char kBlanks[] = " \t\r";

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::size_t skipBlanks(const std::string& text, std::size_t pos) {
    const std::size_t next = text.find_first_not_of(kBlanks, pos);
    return next == std::string::npos ? text.size() : next;
}

// Reads the quoted field that opens at pos into field; pos ends behind the closing quote.
bool readQuoted(const std::string& record, std::size_t& pos, std::string& field) {
    for (++pos; pos < record.size(); ++pos) {
        if (record[pos] != '"') {
            field += record[pos];
            continue;
        }
        if (pos + 1 < record.size() && record[pos + 1] == '"') {
            field += '"';
            ++pos;
            continue;
        }
        ++pos;
        return true;
    }
    return false;
}

bool splitFields(const std::string& record, std::vector<std::string>& fields, std::string& problem) {
    fields.assign(1, std::string());
    for (std::size_t pos = skipBlanks(record, 0);; pos = skipBlanks(record, pos + 1)) {
        if (pos < record.size() && record[pos] == '"') {
            if (!readQuoted(record, pos, fields.back())) {
                problem = "the quoted field " + std::to_string(fields.size()) + " is not closed";
                return false;
            }
            pos = skipBlanks(record, pos);
            if (pos < record.size() && record[pos] != ',') {
                problem = "text after the closing quote of field " + std::to_string(fields.size());
                return false;
            }
        } else {
            const std::size_t comma = std::min(record.find(',', pos), record.size());
            fields.back() = trimmed(record.substr(pos, comma - pos));
            pos = comma;
        }
        if (pos >= record.size())
            return true;
        fields.emplace_back();
    }
}

} // namespace

CsvReader::CsvReader(std::istream& in) : m_in(in.rdbuf()), m_line(0), m_nextLine(1) {}

bool CsvReader::next(std::vector<std::string>& fields, std::string& problem) {
    problem.clear();
    while (m_in && m_in->sgetc() != std::char_traits<char>::eof()) {
        m_line = m_nextLine;
        std::string raw;
        bool tooLong = false;
        readRecord(raw, tooLong);
        if (tooLong) {
            problem = "longer than " + std::to_string(kMaxRecordBytes) + " bytes";
            return true;
        }
        const std::string content = trimmed(raw);
        if (content.empty() || content[0] == '#')
            continue;
        splitFields(content, fields, problem);
        return true;
    }
    return false;
}

void CsvReader::readRecord(std::string& raw, bool& tooLong) {
    bool quoted = false;
    bool comment = false;
    bool blankSoFar = true;
    for (int c = m_in->sbumpc(); c != std::char_traits<char>::eof(); c = m_in->sbumpc()) {
        if (c == '\n') {
            ++m_nextLine;
            // Past the cap the quotes seen are no guide: the line ends the record.
            if (!quoted || comment || tooLong)
                return;
        } else if (c == '"' && !comment) {
            quoted = !quoted;
        } else if (c == '#' && blankSoFar) {
            comment = true;
        }
        blankSoFar = blankSoFar && (c == ' ' || c == '\t');
        if (raw.size() < kMaxRecordBytes)
            raw += static_cast<char>(c);
        else
            tooLong = true;
    }
}

} // namespace korvane_report
