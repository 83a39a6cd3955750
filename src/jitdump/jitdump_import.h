// One jitdump file read and mapped: the .jit trace it becomes and what was found on the way.
#ifndef KORVANE_JITDUMP_JITDUMP_IMPORT_H
#define KORVANE_JITDUMP_JITDUMP_IMPORT_H

#include "jitdump/jitdump_mapper.h"
#include "jitdump/jitdump_reader.h"

#include <memory>
#include <string>

namespace korvane_jitdump {

class JitdumpImport {
public:
    // Reads and maps the whole file; null with the reason in problem if it is no jitdump file.
    static std::unique_ptr<JitdumpImport> create(const std::string& path, std::string& problem);

    const FileHeader& header() const { return m_header; }
    const JitdumpReader::Outcome& outcome() const { return m_outcome; }
    const JitdumpMapper::Counts& counts() const { return m_mapper.counts(); }
    const korvane_tracewriter::TraceWriter& trace() const { return m_mapper.trace(); }
    // HOST.PID.jit, the name by which the library tells host and process.
    std::string traceFileName(const std::string& host) const;
    // "N records, N loads, N moves, N line entries, N skipped", and how the file ended if not plainly.
    std::string summary() const;

private:
    explicit JitdumpImport(const FileHeader& header);

    FileHeader m_header;
    JitdumpMapper m_mapper;
    JitdumpReader::Outcome m_outcome;
};

} // namespace korvane_jitdump

#endif
