// A file named on the command line, opened for reading only if it is a regular file.
#ifndef KORVANE_TOOLS_INPUT_FILE_H
#define KORVANE_TOOLS_INPUT_FILE_H

#include <ext/stdio_filebuf.h>

#include <istream>
#include <memory>
#include <ostream>
#include <string>

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

    std::istream& stream() { return m_stream; }

private:
    explicit InputFile(int fd);

    __gnu_cxx::stdio_filebuf<char> m_buffer; // closes the descriptor
    std::istream m_stream;
};

} // namespace korvane_tool

#endif
