// Walks the records of a jitdump file held in memory and hands each decoded record to a handler.
#include "jitdump/jitdump_reader.h"

#include "jitdump/byte_cursor.h"

#include <type_traits>
#include <utility>

namespace korvane_jitdump {

namespace {

// The smallest entry: address, line, discriminator and an empty name's NUL.
const std::uint64_t kSmallestDebugEntry = 17;

bool readHeader(const std::uint8_t* bytes, std::size_t size, FileHeader& header, std::string& problem) {
    if (size < kFileHeaderSize) {
        problem = "shorter than a jitdump header (" + std::to_string(size) + " bytes)";
        return false;
    }
    std::uint32_t magic = 0;
    ByteCursor(bytes, 4, false).u32(magic);
    if (magic != kMagic && magic != kMagicSwapped) {
        problem = "no jitdump magic word";
        return false;
    }
    header.bigEndian = magic == kMagicSwapped;
    ByteCursor cursor(bytes + 4, kFileHeaderSize - 4, header.bigEndian);
    std::uint32_t padding = 0;
    cursor.u32(header.version);
    cursor.u32(header.headerSize);
    cursor.u32(header.elfMachine);
    cursor.u32(padding);
    cursor.u32(header.pid);
    cursor.u64(header.timestamp);
    cursor.u64(header.flags);
    if (header.headerSize < kFileHeaderSize) {
        problem = "header size " + std::to_string(header.headerSize) + " is below " + std::to_string(kFileHeaderSize);
        return false;
    }
    return true;
}

bool decode(ByteCursor& body, CodeLoad& record) {
    return body.u32(record.pid) && body.u32(record.tid) && body.u64(record.vma) && body.u64(record.codeAddress) &&
           body.u64(record.codeSize) && body.u64(record.codeIndex) && body.cString(record.name) &&
           body.bytes(record.codeSize, record.code);
}

bool decode(ByteCursor& body, CodeMove& record) {
    return body.u32(record.pid) && body.u32(record.tid) && body.u64(record.vma) && body.u64(record.oldCodeAddress) &&
           body.u64(record.newCodeAddress) && body.u64(record.codeSize) && body.u64(record.codeIndex);
}

bool decode(ByteCursor& body, DebugInfo& record) {
    std::uint64_t count = 0;
    if (!body.u64(record.codeAddress) || !body.u64(count) || count > body.remaining() / kSmallestDebugEntry)
        return false;
    record.entries.resize(static_cast<std::size_t>(count));
    std::string_view file;
    for (DebugEntry& entry : record.entries) {
        if (!body.u64(entry.address) || !body.i32(entry.line) || !body.i32(entry.discriminator) ||
            !body.cString(file))
            return false;
        const bool repeated = file.size() == 1 && file[0] == kSameFileAsBefore;
        // Runtimes that name the file in every entry would otherwise cost a copy per entry.
        if (record.fileNames.empty() || (!repeated && file != record.fileNames.back()))
            record.fileNames.emplace_back(repeated ? std::string_view() : file);
        entry.file = record.fileNames.size() - 1;
    }
    return true;
}

// Decodes the record that the handler's member takes and hands it over, or
// reports it malformed.
template <typename Argument>
void decodeAndHand(const RecordHeader& head, ByteCursor& body, JitdumpReader::Handler& handler,
                   void (JitdumpReader::Handler::*hand)(Argument)) {
    typename std::decay<Argument>::type record;
    record.head = head;
    if (!decode(body, record))
        return handler.skipped(head, JitdumpReader::SkipReason::Malformed);
    (handler.*hand)(record);
}

// Decodes one record whose bytes lie wholly inside the file and passes it on.
void dispatch(const RecordHeader& head, ByteCursor& body, JitdumpReader::Handler& handler) {
    typedef JitdumpReader::SkipReason SkipReason;
    switch (head.id) {
    case CodeLoadId:
        return decodeAndHand(head, body, handler, &JitdumpReader::Handler::codeLoad);
    case CodeMoveId:
        return decodeAndHand(head, body, handler, &JitdumpReader::Handler::codeMove);
    case CodeDebugInfoId:
        return decodeAndHand(head, body, handler, &JitdumpReader::Handler::debugInfo);
    case CodeCloseId:
        return;
    case CodeUnwindingInfoId:
        return handler.skipped(head, SkipReason::UnwindingInfo);
    default:
        return handler.skipped(head, SkipReason::UnknownId);
    }
}

} // namespace

JitdumpReader::JitdumpReader(std::vector<std::uint8_t> bytes, std::unique_ptr<MappedFile> file,
                             const FileHeader& header)
    : m_bytes(std::move(bytes)), m_file(std::move(file)), m_data(m_file ? m_file->data() : m_bytes.data()),
      m_size(m_file ? m_file->size() : m_bytes.size()), m_header(header) {}

std::unique_ptr<JitdumpReader> JitdumpReader::create(std::vector<std::uint8_t> bytes, std::string& problem) {
    FileHeader header;
    if (!readHeader(bytes.data(), bytes.size(), header, problem))
        return nullptr;
    return std::unique_ptr<JitdumpReader>(new JitdumpReader(std::move(bytes), nullptr, header));
}

std::unique_ptr<JitdumpReader> JitdumpReader::open(const std::string& path, std::string& problem) {
    std::unique_ptr<MappedFile> file = MappedFile::create(path, problem);
    FileHeader header;
    if (!file || !readHeader(file->data(), file->size(), header, problem))
        return nullptr;
    return std::unique_ptr<JitdumpReader>(new JitdumpReader(std::vector<std::uint8_t>(), std::move(file), header));
}

JitdumpReader::Outcome JitdumpReader::read(Handler& handler) const {
    Outcome outcome;
    const std::size_t size = m_size;
    std::size_t position = m_header.headerSize < size ? m_header.headerSize : size;
    while (position < size) {
        const std::size_t remaining = size - position;
        RecordHeader head;
        ByteCursor frame(m_data + position, remaining, m_header.bigEndian);
        if (!frame.u32(head.id) || !frame.u32(head.totalSize) || !frame.u64(head.timestamp) ||
            head.totalSize > remaining) {
            outcome.ending = Ending::CutOff;
            outcome.unreadBytes = remaining;
            return outcome;
        }
        if (head.totalSize < kRecordHeaderSize) {
            outcome.ending = Ending::Damaged;
            outcome.unreadBytes = remaining;
            return outcome;
        }
        ByteCursor body(m_data + position + kRecordHeaderSize, head.totalSize - kRecordHeaderSize,
                        m_header.bigEndian);
        dispatch(head, body, handler);
        ++outcome.records;
        position += head.totalSize;
        if (head.id == CodeCloseId) {
            outcome.ending = Ending::Closed;
            outcome.unreadBytes = size - position;
            return outcome;
        }
    }
    return outcome;
}

const char* JitdumpReader::endingText(Ending ending) {
    switch (ending) {
    case Ending::EndOfFile:
        return "end of file";
    case Ending::Closed:
        return "closed";
    case Ending::CutOff:
        return "last record cut off";
    case Ending::Damaged:
        return "damaged record";
    }
    return "";
}

} // namespace korvane_jitdump
