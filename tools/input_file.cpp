// A file named on the command line, opened for reading only if it is a regular file.
#include "input_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korvane_tool {

namespace {

std::string kindProblem(mode_t mode) {
    if (S_ISREG(mode))
        return std::string();
    if (S_ISDIR(mode))
        return "is a directory";
    if (S_ISFIFO(mode))
        return "is a FIFO";
    if (S_ISSOCK(mode))
        return "is a socket";
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return "is a device";
    return "is no regular file";
}

std::string errorProblem() { return std::string("cannot be read: ") + std::strerror(errno); }

void refuse(const std::string& path, const std::string& problem, std::ostream& err) {
    err << "korvane-jit: " << path << ": " << problem << "; give a regular file, or - for standard input\n";
}

} // namespace

std::string InputFile::refusal(const std::string& path) {
    struct stat info;
    const int result = path == "-" ? ::fstat(STDIN_FILENO, &info) : ::stat(path.c_str(), &info);
    return result == 0 ? kindProblem(info.st_mode) : errorProblem();
}

std::unique_ptr<InputFile> InputFile::create(const std::string& path, std::ostream& err) {
    if (path == "-")
        return std::unique_ptr<InputFile>(new InputFile(::dup(STDIN_FILENO), false));
    std::string problem = refusal(path);
    if (!problem.empty()) {
        refuse(path, problem, err);
        return nullptr;
    }
    // Checked again on the open file: something else may have taken the name
    // since, and O_NONBLOCK keeps a FIFO there from blocking open().
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || ::fstat(fd, &info) != 0)
        problem = errorProblem();
    else
        problem = kindProblem(info.st_mode);
    if (problem.empty())
        return std::unique_ptr<InputFile>(new InputFile(fd, true));
    if (fd >= 0)
        ::close(fd);
    refuse(path, problem, err);
    return nullptr;
}

// A named file is mapped: copying a sample file of some hundred megabytes would cost as many
// fresh pages, which take longer to touch than the file takes to parse.
InputFile::InputFile(int fd, bool named) {
    std::string problem;
    if (named)
        m_mapped = korvane_jitdump::MappedFile::create(fd, problem);
    if (!m_mapped)
        readAll(fd);
    if (fd >= 0)
        ::close(fd);
}

std::string_view InputFile::text() const {
    if (!m_mapped)
        return m_read;
    return std::string_view(reinterpret_cast<const char*>(m_mapped->data()), m_mapped->size());
}

void InputFile::readAll(int fd) {
    char block[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        m_read.append(block, static_cast<std::size_t>(got));
    }
}

} // namespace korvane_tool
