// An open .jit trace file that many threads append whole records to.
#ifndef KORVANE_TRACEWRITER_TRACE_FILE_H
#define KORVANE_TRACEWRITER_TRACE_FILE_H

#include "tracewriter/trace_writer.h"

#include <memory>
#include <mutex>
#include <string>

namespace korvane_tracewriter {

// Every append hands its bytes to the kernel in one write, so a reader that
// runs beside the writer sees whole records or a clean end, and what was
// appended survives the process being killed. Nothing is buffered here.
class TraceFile {
public:
    // Creates or truncates the file and writes Magic and CollectorType; null
    // with the reason in problem when it can't.
    static std::unique_ptr<TraceFile> create(const std::string& path, std::uint32_t collectorType,
                                             std::string& problem);
    // The name a trace of the process on the host goes by: HOST.PID.jit.
    static std::string nameFor(const std::string& host, std::uint32_t pid);
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    // Appends the records built in writer; false with the reason in problem
    // when the kernel took less than all of them.
    bool append(const TraceWriter& writer, std::string& problem);
    const std::string& path() const { return m_path; }

private:
    TraceFile(int descriptor, std::string path);
    bool writeAll(const Bytes& bytes, std::string& problem);

    std::mutex m_mutex;
    int m_descriptor;
    std::string m_path;
};

} // namespace korvane_tracewriter

#endif
