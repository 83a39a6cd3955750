// Writes .jit trace files record by record.
#include "tracewriter/trace_writer.h"

#include "jitreader/jit_trace_format.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace korvane_tracewriter {

namespace jt = korvane_3_10::jittrace;

namespace {

// Appends to bytes that someone else holds: a payload of its own, or the
// trace itself, so that a record is built once, where it ends up.
class PayloadBuilder {
public:
    explicit PayloadBuilder(Bytes& bytes) : m_bytes(bytes) {}
    void u8(std::uint8_t value) { m_bytes.push_back(value); }
    void u16(std::uint16_t value) { little(value, 2); }
    void u32(std::uint32_t value) { little(value, 4); }
    void u64(std::uint64_t value) { little(value, 8); }
    void bytes(const Bytes& bytes) { append(bytes.data(), bytes.size()); }
    void string(const std::string& text) {
        u16(static_cast<std::uint16_t>(text.size()));
        append(text.data(), text.size());
    }
    void codeRange(const CodeRange& range) {
        u64(range.startAddress);
        u32(range.length);
        if (range.borrowedCode) {
            u32(range.length);
            // Copied in at the end, without first filling the room with zeros.
            m_bytes.insert(m_bytes.end(), range.borrowedCode, range.borrowedCode + range.length);
            return;
        }
        u32(static_cast<std::uint32_t>(range.code.size()));
        bytes(range.code);
    }
    void lineTable(const std::vector<LineEntry>& entries, bool wideCount) {
        if (wideCount)
            u32(static_cast<std::uint32_t>(entries.size()));
        else
            u16(static_cast<std::uint16_t>(entries.size()));
        std::uint8_t* out = grow(entries.size() * 12);
        for (const LineEntry& entry : entries) {
            const std::uint32_t words[3] = {entry.startOffset, entry.endOffset, entry.lineNumber};
            std::memcpy(out, words, sizeof words);
            out += sizeof words;
        }
    }

private:
    // The words go out little-endian, as this machine holds them.
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are written as little-endian");

    void little(std::uint64_t value, std::size_t count) { append(&value, count); }
    void append(const void* data, std::size_t count) {
        if (count > 0)
            std::memcpy(grow(count), data, count);
    }
    // Room for count more bytes at the end, in one step rather than byte by byte.
    std::uint8_t* grow(std::size_t count) {
        const std::size_t at = m_bytes.size();
        m_bytes.resize(at + count);
        return m_bytes.data() + at;
    }

    Bytes& m_bytes;
};

void ranges(PayloadBuilder& out, const LoadRecord& record) {
    out.u16(static_cast<std::uint16_t>(record.ranges.size()));
    for (const CodeRange& range : record.ranges)
        out.codeRange(range);
}

void tail(PayloadBuilder& out, const LoadRecord& record, bool wideCounts) {
    out.string(record.moduleName);
    out.u16(record.architecture);
    out.string(record.methodName);
    out.string(record.className);
    out.string(record.sourceFileName);
    out.u16(record.checksumType);
    out.string(record.checksum);
    out.u16(record.languageType);
    out.lineTable(record.managedToSource, wideCounts);
    out.lineTable(record.nativeToManaged, wideCounts);
    out.lineTable(record.nativeToSource, wideCounts);
}

void writeV0OrV1(PayloadBuilder& out, const LoadRecord& record, bool wideCounts) {
    out.u32(record.methodToken);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, wideCounts);
}

void writeV2(PayloadBuilder& out, const LoadRecord& record) {
    out.u32(record.methodId);
    out.u32(record.methodToken);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, true);
}

void writeV3(PayloadBuilder& out, const LoadRecord& record) {
    out.u32(record.methodId);
    out.u32(record.methodToken);
    out.u8(record.isInlined);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, true);
}

void writeInline(PayloadBuilder& out, const InlineRecord& record) {
    out.u32(record.methodId);
    out.u32(record.parentId);
    out.u64(record.loadTime);
    out.u16(record.rangeCount);
    out.u64(record.startAddress);
    out.u32(record.length);
    out.u32(static_cast<std::uint32_t>(record.code.size()));
    out.bytes(record.code);
    out.string(record.moduleName);
    out.u16(record.architecture);
    out.string(record.methodName);
    out.string(record.className);
    out.string(record.sourceFileName);
    out.u16(record.languageType);
    out.lineTable(record.nativeToSource, true);
}

void writeUpdateV2(PayloadBuilder& out, const UpdateV2Record& record) {
    out.u32(record.segmentType);
    out.u64(record.loadTime);
    out.u16(record.architecture);
    out.string(record.rangeName);
    out.u64(record.startAddress);
    out.u32(record.length);
    out.u32(static_cast<std::uint32_t>(record.code.size()));
    out.bytes(record.code);
}

// A payload on its own, for tests that cut or alter it.
template <typename Record, typename Writer>
Bytes payloadOf(const Record& record, Writer write) {
    Bytes bytes;
    PayloadBuilder out(bytes);
    write(out, record);
    return bytes;
}

std::uint32_t widthType(Width width, std::uint32_t type32, std::uint32_t type64) {
    return width == Width::Bits32 ? type32 : type64;
}

// A sized record built in place at the end of the trace: the size word is
// filled in once the payload stands behind it.
template <typename Record, typename Writer>
void appendRecord(Bytes& trace, std::uint32_t type, const Record& record, Writer write) {
    PayloadBuilder out(trace);
    out.u32(type);
    const std::size_t sizeWord = trace.size();
    out.u32(0);
    write(out, record);
    const std::uint32_t size = static_cast<std::uint32_t>(trace.size() - sizeWord - 4);
    for (int i = 0; i < 4; ++i)
        trace[sizeWord + i] = static_cast<std::uint8_t>(size >> (8 * i));
}

} // namespace

Bytes payloadV0(const LoadRecord& record) {
    return payloadOf(record, [](PayloadBuilder& out, const LoadRecord& load) { writeV0OrV1(out, load, false); });
}

Bytes payloadV1(const LoadRecord& record) {
    return payloadOf(record, [](PayloadBuilder& out, const LoadRecord& load) { writeV0OrV1(out, load, true); });
}

Bytes payloadV2(const LoadRecord& record) { return payloadOf(record, writeV2); }

Bytes payloadV3(const LoadRecord& record) { return payloadOf(record, writeV3); }

Bytes payloadInline(const InlineRecord& record) { return payloadOf(record, writeInline); }

Bytes payloadUpdateV2(const UpdateV2Record& record) { return payloadOf(record, writeUpdateV2); }

TraceWriter& TraceWriter::magic(std::uint32_t value) { return this->value(jt::Magic, value); }

TraceWriter& TraceWriter::collectorType(std::uint32_t value) { return this->value(jt::CollectorType, value); }

TraceWriter& TraceWriter::loadV0(const LoadRecord& record, Width width) {
    appendRecord(m_bytes, widthType(width, jt::FunctionLoad32, jt::FunctionLoad64), record,
                 [](PayloadBuilder& out, const LoadRecord& load) { writeV0OrV1(out, load, false); });
    return *this;
}

TraceWriter& TraceWriter::loadV1(const LoadRecord& record, Width width) {
    appendRecord(m_bytes, widthType(width, jt::FunctionLoad32_v1, jt::FunctionLoad64_v1), record,
                 [](PayloadBuilder& out, const LoadRecord& load) { writeV0OrV1(out, load, true); });
    return *this;
}

TraceWriter& TraceWriter::loadV2(const LoadRecord& record, Width width) {
    appendRecord(m_bytes, widthType(width, jt::FunctionLoad32_v2, jt::FunctionLoad64_v2), record, writeV2);
    return *this;
}

TraceWriter& TraceWriter::loadV3(const LoadRecord& record, Width width) {
    appendRecord(m_bytes, widthType(width, jt::FunctionLoad32_v3, jt::FunctionLoad64_v3), record, writeV3);
    return *this;
}

TraceWriter& TraceWriter::functionUpdate(const LoadRecord& record) {
    appendRecord(m_bytes, jt::FunctionUpdate, record, writeV3);
    return *this;
}

TraceWriter& TraceWriter::inlineLoad(const InlineRecord& record, Width width) {
    appendRecord(m_bytes, widthType(width, jt::FunctionInlineLoad32, jt::FunctionInlineLoad64), record,
                 writeInline);
    return *this;
}

TraceWriter& TraceWriter::updateV2(const UpdateV2Record& record) {
    appendRecord(m_bytes, jt::FunctionUpdate_v2, record, writeUpdateV2);
    return *this;
}

TraceWriter& TraceWriter::sized(std::uint32_t type, const Bytes& payload) {
    return sizedWithSizeWord(type, static_cast<std::uint32_t>(payload.size()), payload);
}

TraceWriter& TraceWriter::sizedWithSizeWord(std::uint32_t type, std::uint32_t sizeWord, const Bytes& payload) {
    PayloadBuilder out(m_bytes);
    out.u32(type);
    out.u32(sizeWord);
    out.bytes(payload);
    return *this;
}

TraceWriter& TraceWriter::value(std::uint32_t type, std::uint32_t value) {
    PayloadBuilder out(m_bytes);
    out.u32(type);
    out.u32(value);
    return *this;
}

TraceWriter& TraceWriter::raw(const Bytes& bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

void TraceWriter::clear() { m_bytes.clear(); }

void TraceWriter::reserve(std::size_t size) { m_bytes.reserve(size); }

TraceWriter& TraceWriter::cutOff(std::size_t count) {
    m_bytes.resize(count < m_bytes.size() ? m_bytes.size() - count : 0);
    return *this;
}

void TraceWriter::writeTo(const std::string& path) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        throw std::runtime_error("cannot create trace file " + path);
    file.write(reinterpret_cast<const char*>(m_bytes.data()), static_cast<std::streamsize>(m_bytes.size()));
    if (!file)
        throw std::runtime_error("cannot write trace file " + path);
}

} // namespace korvane_tracewriter
