// An open .jit trace file that many threads append whole records to.
#include "tracewriter/trace_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace korvane_tracewriter {

std::unique_ptr<TraceFile> TraceFile::create(const std::string& path, std::uint32_t collectorType,
                                             std::string& problem) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        problem = "cannot create " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<TraceFile> file(new TraceFile(descriptor, path));
    TraceWriter head;
    head.magic().collectorType(collectorType);
    if (!file->append(head, problem))
        return nullptr;
    return file;
}

std::string TraceFile::nameFor(const std::string& host, std::uint32_t pid) {
    return host + "." + std::to_string(pid) + ".jit";
}

TraceFile::TraceFile(int descriptor, std::string path) : m_descriptor(descriptor), m_path(std::move(path)) {}

TraceFile::~TraceFile() { ::close(m_descriptor); }

bool TraceFile::append(const TraceWriter& writer, std::string& problem) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return writeAll(writer.bytes(), problem);
}

// A regular file takes a write whole unless the disk is full or a signal
// cuts it short; the rest is then retried so that no record is left half.
bool TraceFile::writeAll(const Bytes& bytes, std::string& problem) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            problem = "cannot write " + m_path + ": " + (written < 0 ? std::strerror(errno) : "no space");
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace korvane_tracewriter
