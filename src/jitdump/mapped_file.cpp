// A regular file mapped read-only into memory, as large as it was when it was opened.
#include "jitdump/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korvane_jitdump {

namespace {

// Closes the descriptor on every way out; the mapping outlives it.
class Descriptor {
public:
    explicit Descriptor(int value) : m_value(value) {}
    ~Descriptor() {
        if (m_value >= 0)
            ::close(m_value);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int value() const { return m_value; }

private:
    int m_value;
};

} // namespace

MappedFile::MappedFile(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

MappedFile::~MappedFile() {
    if (m_size > 0)
        ::munmap(const_cast<std::uint8_t*>(m_data), m_size);
}

std::unique_ptr<MappedFile> MappedFile::create(const std::string& path, std::string& problem) {
    // Non-blocking, so that opening a FIFO does not wait for a writer.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.value() < 0) {
        problem = "cannot open the file";
        return nullptr;
    }
    return create(file.value(), problem);
}

std::unique_ptr<MappedFile> MappedFile::create(int descriptor, std::string& problem) {
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        problem = "cannot open the file";
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = "is not a regular file";
        return nullptr;
    }
    // The size at opening: records a runtime appends later are not read.
    const std::size_t size = static_cast<std::size_t>(status.st_size);
    if (size == 0)
        return std::unique_ptr<MappedFile>(new MappedFile(nullptr, 0));
    // Every byte is read once, front to back: mapped in one call rather than a fault at a time.
    void* data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
    if (data == MAP_FAILED) {
        problem = "cannot read the file";
        return nullptr;
    }
    return std::unique_ptr<MappedFile>(new MappedFile(static_cast<const std::uint8_t*>(data), size));
}

} // namespace korvane_jitdump
