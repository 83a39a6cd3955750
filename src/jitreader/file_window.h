// A trace file read forward through a bounded window: one system call per window, not per record.
#ifndef KORVANE_JITREADER_FILE_WINDOW_H
#define KORVANE_JITREADER_FILE_WINDOW_H

#include <korvane/types.h>

#include <cstddef>
#include <vector>

namespace korvane_3_10 {

class FileWindow {
public:
    // Large enough that reading costs a system call per many records, small
    // enough that a huge or sparse file costs no more memory than this, and
    // that a short run does not fault in pages it barely uses.
    static constexpr std::size_t kWindowSize = 1u << 18;

    FileWindow() = default;
    ~FileWindow();
    FileWindow(const FileWindow&) = delete;
    FileWindow& operator=(const FileWindow&) = delete;

    // Opens a regular file; anything else stays unopened (opening a FIFO would wait for a writer).
    bool open(const ustring& path);
    bool isOpen() const { return m_descriptor >= 0; }
    // The size when the file was opened.
    u64_t size() const { return m_size; }
    // Copies the bytes at [offset, offset + count) into target; the count copied
    // is smaller only where the file ends.
    std::size_t readAt(u64_t offset, char* target, std::size_t count);

private:
    // Reads what stands at offset straight into target, up to count bytes.
    std::size_t readDirect(u64_t offset, char* target, std::size_t count) const;
    bool fill(u64_t offset);

    int m_descriptor = -1;
    u64_t m_size = 0;
    std::vector<char> m_window;
    u64_t m_windowStart = 0;
    std::size_t m_windowLength = 0;
};

} // namespace korvane_3_10

#endif
