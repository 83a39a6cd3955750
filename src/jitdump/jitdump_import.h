// One jitdump file read and mapped into the .jit trace it becomes, and what was found on the way.
#ifndef KORVANE_JITDUMP_JITDUMP_IMPORT_H
#define KORVANE_JITDUMP_JITDUMP_IMPORT_H

#include "jitdump/jitdump_mapper.h"
#include "jitdump/jitdump_reader.h"

#include <memory>
#include <string>

namespace korvane_jitdump {

class JitdumpImport {
public:
    // Opens the file and checks its header; null with the reason in problem if it is no jitdump file.
    static std::unique_ptr<JitdumpImport> create(const std::string& path, std::string& problem);

    const FileHeader& header() const { return m_reader->header(); }
    // Reads and maps every record into the trace file at path, created or truncated;
    // false with the reason in problem if the file could not be written. Once only.
    bool writeTo(const std::string& path, std::string& problem);
    const JitdumpReader::Outcome& outcome() const { return m_outcome; }
    const JitdumpMapper::Counts& counts() const { return m_mapper ? m_mapper->counts() : m_noCounts; }
    // HOST.PID.jit, the name by which the library tells host and process.
    std::string traceFileName(const std::string& host) const;
    // "N records, N loads, N moves, N line entries, N skipped", and how the file ended if not plainly.
    std::string summary() const;

private:
    explicit JitdumpImport(std::unique_ptr<JitdumpReader> reader);

    std::unique_ptr<JitdumpReader> m_reader;
    JitdumpReader::Outcome m_outcome;
    // Kept with the import rather than dropped after writing: a caller that keeps the
    // import until it exits saves freeing every load one by one.
    std::unique_ptr<JitdumpMapper> m_mapper;
    JitdumpMapper::Counts m_noCounts;
};

} // namespace korvane_jitdump

#endif
