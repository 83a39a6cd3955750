// A regular file mapped read-only into memory, as large as it was when it was opened.
#ifndef KORVANE_JITDUMP_MAPPED_FILE_H
#define KORVANE_JITDUMP_MAPPED_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace korvane_jitdump {

// Mapped rather than read: a file of gigabytes, or a sparse one, costs
// address space and the pages actually looked at, not a buffer of its size.
class MappedFile {
public:
    // Null with the reason in problem when the path is no regular file or can't be mapped.
    static std::unique_ptr<MappedFile> create(const std::string& path, std::string& problem);
    // The same for a file open for reading; the descriptor stays the caller's.
    static std::unique_ptr<MappedFile> create(int descriptor, std::string& problem);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    const std::uint8_t* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    MappedFile(const std::uint8_t* data, std::size_t size);

    const std::uint8_t* m_data;
    std::size_t m_size;
};

} // namespace korvane_jitdump

#endif
