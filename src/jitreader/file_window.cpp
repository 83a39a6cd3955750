// A trace file read forward through a bounded window: one system call per window, not per record.
#include "jitreader/file_window.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace korvane_3_10 {

FileWindow::~FileWindow() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

bool FileWindow::open(const ustring& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    m_descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_descriptor < 0)
        return false;
    struct stat opened;
    m_size = ::fstat(m_descriptor, &opened) == 0 && opened.st_size > 0 ? static_cast<u64_t>(opened.st_size) : 0;
    return true;
}

std::size_t FileWindow::readAt(u64_t offset, char* target, std::size_t count) {
    std::size_t copied = 0;
    while (copied < count) {
        const u64_t at = offset + copied;
        if (at >= m_windowStart && at < m_windowStart + m_windowLength) {
            const std::size_t skip = static_cast<std::size_t>(at - m_windowStart);
            const std::size_t piece = std::min(count - copied, m_windowLength - skip);
            std::memcpy(target + copied, m_window.data() + skip, piece);
            copied += piece;
            continue;
        }
        // Payloads larger than the window, and what a file still being written
        // holds beyond its size at opening, go straight to their place.
        if (count - copied >= kWindowSize || at >= m_size)
            return copied + readDirect(at, target + copied, count - copied);
        if (!fill(at))
            return copied;
    }
    return copied;
}

std::size_t FileWindow::readDirect(u64_t offset, char* target, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = ::pread(m_descriptor, target + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool FileWindow::fill(u64_t offset) {
    if (m_window.empty())
        m_window.resize(static_cast<std::size_t>(std::min<u64_t>(kWindowSize, m_size)));
    m_windowStart = offset;
    m_windowLength = readDirect(offset, m_window.data(), m_window.size());
    return m_windowLength != 0;
}

} // namespace korvane_3_10
