// One jitdump file read and mapped: the .jit trace it becomes and what was found on the way.
#include "jitdump/jitdump_import.h"

#include "tracewriter/trace_file.h"

namespace korvane_jitdump {

namespace {

std::string counted(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

} // namespace

JitdumpImport::JitdumpImport(const FileHeader& header) : m_header(header), m_mapper(header) {}

std::unique_ptr<JitdumpImport> JitdumpImport::create(const std::string& path, std::string& problem) {
    const std::unique_ptr<JitdumpReader> reader = JitdumpReader::open(path, problem);
    if (!reader)
        return nullptr;
    std::unique_ptr<JitdumpImport> import(new JitdumpImport(reader->header()));
    import->m_outcome = reader->read(import->m_mapper);
    import->m_mapper.finish();
    return import;
}

std::string JitdumpImport::traceFileName(const std::string& host) const {
    return korvane_tracewriter::TraceFile::nameFor(host, m_header.pid);
}

std::string JitdumpImport::summary() const {
    const JitdumpMapper::Counts& numbers = counts();
    std::string text = counted(m_outcome.records, "record", "records") + ", " +
                       counted(numbers.loads, "load", "loads") + ", " + counted(numbers.moves, "move", "moves") +
                       ", " + counted(numbers.lineEntries, "line entry", "line entries") + ", " +
                       std::to_string(numbers.skipped) + " skipped";
    if (m_outcome.ending != JitdumpReader::Ending::EndOfFile)
        text += "; " + std::string(JitdumpReader::endingText(m_outcome.ending)) + ", " +
                counted(m_outcome.unreadBytes, "byte", "bytes") + " not read";
    if (m_header.flags & kFlagTimestampCounter)
        text += "; times count the CPU's time-stamp counter";
    return text;
}

} // namespace korvane_jitdump
