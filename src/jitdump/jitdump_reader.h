// Walks the records of a jitdump file held in memory and hands each decoded record to a handler.
#ifndef KORVANE_JITDUMP_JITDUMP_READER_H
#define KORVANE_JITDUMP_JITDUMP_READER_H

#include "jitdump/jitdump_format.h"
#include "jitdump/mapped_file.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane_jitdump {

class JitdumpReader {
public:
    enum class SkipReason { UnwindingInfo, UnknownId, Malformed };

    class Handler {
    public:
        virtual ~Handler() {}
        virtual void codeLoad(const CodeLoad& record) = 0;
        virtual void codeMove(const CodeMove& record) = 0;
        virtual void debugInfo(DebugInfo& record) = 0;
        virtual void skipped(const RecordHeader& head, SkipReason reason) = 0;
    };

    enum class Ending {
        EndOfFile, // the last record ended where the file does
        Closed,    // a CODE_CLOSE record; anything behind it is not read
        CutOff,    // the last record runs past the end: the runtime was still writing it
        Damaged    // a record too short for its own header: nothing behind it can be found
    };

    struct Outcome {
        Ending ending = Ending::EndOfFile;
        std::uint64_t records = 0;   // records handed out or skipped
        std::uint64_t unreadBytes = 0; // bytes behind the last whole record
    };

    // Checks the file header; null with the reason in problem if the bytes are no jitdump file.
    static std::unique_ptr<JitdumpReader> create(std::vector<std::uint8_t> bytes, std::string& problem);
    // As create, over the contents of a file, which is mapped and not read into a buffer.
    static std::unique_ptr<JitdumpReader> open(const std::string& path, std::string& problem);

    const FileHeader& header() const { return m_header; }
    // Reads every record once, front to back.
    Outcome read(Handler& handler) const;

    static const char* endingText(Ending ending);

private:
    JitdumpReader(std::vector<std::uint8_t> bytes, std::unique_ptr<MappedFile> file, const FileHeader& header);

    // The bytes are one of the two, given or mapped.
    std::vector<std::uint8_t> m_bytes;
    std::unique_ptr<MappedFile> m_file;
    const std::uint8_t* m_data;
    std::size_t m_size;
    FileHeader m_header;
};

} // namespace korvane_jitdump

#endif
