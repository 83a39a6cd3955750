// Writes .jit trace files record by record, including the broken forms that
// readers must survive. Used by the tests and the example generator; the
// library itself never writes files.
#ifndef KORVANE_TRACEWRITER_TRACE_WRITER_H
#define KORVANE_TRACEWRITER_TRACE_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_tracewriter {

typedef std::vector<std::uint8_t> Bytes;

struct LineEntry {
    std::uint32_t startOffset;
    std::uint32_t endOffset;
    std::uint32_t lineNumber;
};

struct CodeRange {
    std::uint64_t startAddress = 0;
    std::uint32_t length = 0;
    // codeSize on disk is code.size(); it need not equal length.
    Bytes code;
    // When set, the length bytes it points to are written as the code instead
    // of code, so that a caller holding them writes them without a copy.
    const std::uint8_t* borrowedCode = nullptr;
};

// The fields of the load records V0 to V3 and of FunctionUpdate; each version
// writes the fields it has.
struct LoadRecord {
    std::uint32_t methodId = 0;
    std::uint32_t methodToken = 0;
    std::uint8_t isInlined = 0;
    std::uint64_t loadTime = 0;
    std::vector<CodeRange> ranges;
    std::string moduleName;
    std::uint16_t architecture = 1;
    std::string methodName;
    std::string className;
    std::string sourceFileName;
    std::uint16_t checksumType = 0;
    std::string checksum;
    std::uint16_t languageType = 0;
    std::vector<LineEntry> managedToSource;
    std::vector<LineEntry> nativeToManaged;
    std::vector<LineEntry> nativeToSource;
};

struct InlineRecord {
    std::uint32_t methodId = 0;
    std::uint32_t parentId = 0;
    std::uint64_t loadTime = 0;
    std::uint16_t rangeCount = 1;
    std::uint64_t startAddress = 0;
    std::uint32_t length = 0;
    Bytes code;
    std::string moduleName;
    std::uint16_t architecture = 1;
    std::string methodName;
    std::string className;
    std::string sourceFileName;
    std::uint16_t languageType = 0;
    std::vector<LineEntry> nativeToSource;
};

struct UpdateV2Record {
    std::uint32_t segmentType = 1;
    std::uint64_t loadTime = 0;
    std::uint16_t architecture = 1;
    std::string rangeName;
    std::uint64_t startAddress = 0;
    std::uint32_t length = 0;
    Bytes code;
};

enum class Width { Bits32, Bits64 };

// Payload builders, public so that tests can cut or alter a payload.
Bytes payloadV0(const LoadRecord& record);
Bytes payloadV1(const LoadRecord& record);
Bytes payloadV2(const LoadRecord& record);
Bytes payloadV3(const LoadRecord& record);
Bytes payloadInline(const InlineRecord& record);
Bytes payloadUpdateV2(const UpdateV2Record& record);

class TraceWriter {
public:
    static const std::uint32_t kMagicValue = 0x4a495431;
    // The collector type that the JVM agent and the jitdump import write.
    static const std::uint32_t kCollectorJitProfiler = 1;

    TraceWriter& magic(std::uint32_t value = kMagicValue);
    TraceWriter& collectorType(std::uint32_t value);

    TraceWriter& loadV0(const LoadRecord& record, Width width = Width::Bits64);
    TraceWriter& loadV1(const LoadRecord& record, Width width = Width::Bits64);
    TraceWriter& loadV2(const LoadRecord& record, Width width = Width::Bits64);
    TraceWriter& loadV3(const LoadRecord& record, Width width = Width::Bits64);
    TraceWriter& functionUpdate(const LoadRecord& record);
    TraceWriter& inlineLoad(const InlineRecord& record, Width width = Width::Bits64);
    TraceWriter& updateV2(const UpdateV2Record& record);

    // A sized record with any type and payload; the size word is the payload's size.
    TraceWriter& sized(std::uint32_t type, const Bytes& payload);
    // A sized record whose size word says something else than the payload holds.
    TraceWriter& sizedWithSizeWord(std::uint32_t type, std::uint32_t sizeWord, const Bytes& payload);
    // A value record (type and 4 value bytes), for any type.
    TraceWriter& value(std::uint32_t type, std::uint32_t value);
    // Bytes as they stand: a cut-off type word, stray trailing bytes.
    TraceWriter& raw(const Bytes& bytes);
    // Drops the last bytes written: a payload or size word cut off by the end of the file.
    TraceWriter& cutOff(std::size_t count);

    // Drops what was written, keeping the memory: a writer that hands its
    // records to a file block by block fills the same buffer again.
    void clear();
    // Room for size bytes up front, so that a buffer filled again and again is not grown piece by piece.
    void reserve(std::size_t size);

    const Bytes& bytes() const { return m_bytes; }
    std::size_t size() const { return m_bytes.size(); }
    // Writes the file; throws std::runtime_error when it can't.
    void writeTo(const std::string& path) const;

private:
    Bytes m_bytes;
};

} // namespace korvane_tracewriter

#endif
