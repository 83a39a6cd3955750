// One jitdump file read and mapped into the .jit trace it becomes, and what was found on the way.
#include "jitdump/jitdump_import.h"

#include "tracewriter/trace_file.h"

namespace korvane_jitdump {

namespace {

using korvane_tracewriter::TraceFile;

std::string counted(std::uint64_t number, const char* singular, const char* plural) {
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

} // namespace

JitdumpImport::JitdumpImport(std::unique_ptr<JitdumpReader> reader) : m_reader(std::move(reader)) {}

std::unique_ptr<JitdumpImport> JitdumpImport::create(const std::string& path, std::string& problem) {
    std::unique_ptr<JitdumpReader> reader = JitdumpReader::open(path, problem);
    if (!reader)
        return nullptr;
    return std::unique_ptr<JitdumpImport>(new JitdumpImport(std::move(reader)));
}

bool JitdumpImport::writeTo(const std::string& path, std::string& problem) {
    const std::unique_ptr<TraceFile> file =
        TraceFile::create(path, korvane_tracewriter::TraceWriter::kCollectorJitProfiler, problem);
    if (!file)
        return false;
    m_mapper.reset(new JitdumpMapper(m_reader->header(), file.get()));
    m_outcome = m_reader->read(*m_mapper);
    m_mapper->finish();
    problem = m_mapper->writeProblem();
    return problem.empty();
}

std::string JitdumpImport::traceFileName(const std::string& host) const {
    return TraceFile::nameFor(host, header().pid);
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
    if (header().flags & kFlagTimestampCounter)
        text += "; times count the CPU's time-stamp counter";
    return text;
}

} // namespace korvane_jitdump
