// A file named on the command line, opened for reading only if it is a regular file.
#ifndef KORVANE_TOOLS_INPUT_FILE_H
#define KORVANE_TOOLS_INPUT_FILE_H

#include "jitdump/mapped_file.h"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace korvane_tool {

class InputFile {
public:
    // "-" is standard input, whatever it is. Any other path must be a regular
    // file or a link to one: a FIFO could block open() for ever, a device could
    // give bytes without end, so these are refused with a message on err that
    // names the path and says what it is.
    static std::unique_ptr<InputFile> create(const std::string& path, std::ostream& err);

    // Empty when the path ("-": standard input) is a regular file, otherwise
    // what it is instead, e.g. "is a FIFO". Looks without opening.
    static std::string refusal(const std::string& path);

    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // All of it, from where it stood to its end, valid while the object is. What couldn't be
    // read is left out.
    std::string_view text() const;

private:
    // Takes the file in and closes the descriptor: a named file is mapped rather than
    // copied, standard input is read.
    InputFile(int fd, bool named);
    void readAll(int fd);

    std::unique_ptr<korvane_jitdump::MappedFile> m_mapped;
    std::string m_read;
};

} // namespace korvane_tool

#endif
