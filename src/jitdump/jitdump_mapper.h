// Turns the records of one jitdump file into the load records of a .jit trace.
#ifndef KORVANE_JITDUMP_JITDUMP_MAPPER_H
#define KORVANE_JITDUMP_JITDUMP_MAPPER_H

#include "jitdump/jitdump_reader.h"

#include "tracewriter/trace_file.h"
#include "tracewriter/trace_writer.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace korvane_jitdump {

class JitdumpMapper : public JitdumpReader::Handler {
public:
    struct Counts {
        std::uint64_t loads = 0;
        std::uint64_t moves = 0;
        std::uint64_t lineEntries = 0;
        std::uint64_t skipped = 0; // records read that became nothing
    };

    // The records go to the file in blocks as they are made, behind the head the
    // file was created with; without a file they are made and dropped (fuzzing).
    explicit JitdumpMapper(const FileHeader& header, korvane_tracewriter::TraceFile* file = nullptr);

    void codeLoad(const CodeLoad& record) override;
    void codeMove(const CodeMove& record) override;
    void debugInfo(DebugInfo& record) override;
    void skipped(const RecordHeader& head, JitdumpReader::SkipReason reason) override;
    // Counts the line records that no load claimed and hands the last block to the
    // file; called once after reading, while the bytes read are still there.
    void finish();

    const Counts& counts() const { return m_counts; }
    // Empty unless writing to the file failed; nothing is written after a failure.
    const std::string& writeProblem() const { return m_writeProblem; }

private:
    // What writing a load again after a move takes; its name and code stay in the bytes read.
    struct LoadSource {
        std::uint32_t methodId;
        std::uint32_t length;
        const std::uint8_t* code;
        std::string_view name;
        std::vector<korvane_tracewriter::LineEntry> lines;
        std::string linesFile; // the file the line records name, if any
    };

    void attachLines(std::uint64_t codeAddress, LoadSource& source);
    void write(LoadSource& source, std::uint64_t loadTime, std::uint64_t address);
    void drain(std::size_t atLeast);

    korvane_tracewriter::TraceWriter m_trace;
    korvane_tracewriter::TraceFile* m_file;
    std::string m_writeProblem;
    korvane_tracewriter::Width m_width;
    Counts m_counts;
    std::uint32_t m_lastMethodId;
    // Line records wait here for the load of their code address.
    std::map<std::uint64_t, DebugInfo> m_pendingLines;
    // The latest load of each code index, for the moves that follow it; no copy of all code is kept.
    std::map<std::uint64_t, LoadSource> m_loads;
    korvane_tracewriter::LoadRecord m_load;
};

} // namespace korvane_jitdump

#endif
