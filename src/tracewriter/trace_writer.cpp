// Writes .jit trace files record by record.
#include "tracewriter/trace_writer.h"

#include "jitreader/jit_trace_format.h"

#include <fstream>
#include <stdexcept>

namespace korvane_tracewriter {

namespace jt = korvane_3_10::jittrace;

namespace {

class PayloadBuilder {
public:
    void u8(std::uint8_t value) { m_bytes.push_back(value); }
    void u16(std::uint16_t value) { little(value, 2); }
    void u32(std::uint32_t value) { little(value, 4); }
    void u64(std::uint64_t value) { little(value, 8); }
    void bytes(const Bytes& bytes) { m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end()); }
    void string(const std::string& text) {
        u16(static_cast<std::uint16_t>(text.size()));
        m_bytes.insert(m_bytes.end(), text.begin(), text.end());
    }
    void codeRange(const CodeRange& range) {
        u64(range.startAddress);
        u32(range.length);
        u32(static_cast<std::uint32_t>(range.code.size()));
        bytes(range.code);
    }
    void lineTable(const std::vector<LineEntry>& entries, bool wideCount) {
        if (wideCount)
            u32(static_cast<std::uint32_t>(entries.size()));
        else
            u16(static_cast<std::uint16_t>(entries.size()));
        for (const LineEntry& entry : entries) {
            u32(entry.startOffset);
            u32(entry.endOffset);
            u32(entry.lineNumber);
        }
    }
    Bytes take() { return std::move(m_bytes); }

private:
    void little(std::uint64_t value, int count) {
        for (int i = 0; i < count; ++i)
            m_bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }

    Bytes m_bytes;
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

Bytes payloadV0OrV1(const LoadRecord& record, bool wideCounts) {
    PayloadBuilder out;
    out.u32(record.methodToken);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, wideCounts);
    return out.take();
}

std::uint32_t widthType(Width width, std::uint32_t type32, std::uint32_t type64) {
    return width == Width::Bits32 ? type32 : type64;
}

} // namespace

Bytes payloadV0(const LoadRecord& record) { return payloadV0OrV1(record, false); }

Bytes payloadV1(const LoadRecord& record) { return payloadV0OrV1(record, true); }

Bytes payloadV2(const LoadRecord& record) {
    PayloadBuilder out;
    out.u32(record.methodId);
    out.u32(record.methodToken);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, true);
    return out.take();
}

Bytes payloadV3(const LoadRecord& record) {
    PayloadBuilder out;
    out.u32(record.methodId);
    out.u32(record.methodToken);
    out.u8(record.isInlined);
    out.u64(record.loadTime);
    ranges(out, record);
    tail(out, record, true);
    return out.take();
}

Bytes payloadInline(const InlineRecord& record) {
    PayloadBuilder out;
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
    return out.take();
}

Bytes payloadUpdateV2(const UpdateV2Record& record) {
    PayloadBuilder out;
    out.u32(record.segmentType);
    out.u64(record.loadTime);
    out.u16(record.architecture);
    out.string(record.rangeName);
    out.u64(record.startAddress);
    out.u32(record.length);
    out.u32(static_cast<std::uint32_t>(record.code.size()));
    out.bytes(record.code);
    return out.take();
}

TraceWriter& TraceWriter::magic(std::uint32_t value) { return this->value(jt::Magic, value); }

TraceWriter& TraceWriter::collectorType(std::uint32_t value) { return this->value(jt::CollectorType, value); }

TraceWriter& TraceWriter::loadV0(const LoadRecord& record, Width width) {
    return sized(widthType(width, jt::FunctionLoad32, jt::FunctionLoad64), payloadV0(record));
}

TraceWriter& TraceWriter::loadV1(const LoadRecord& record, Width width) {
    return sized(widthType(width, jt::FunctionLoad32_v1, jt::FunctionLoad64_v1), payloadV1(record));
}

TraceWriter& TraceWriter::loadV2(const LoadRecord& record, Width width) {
    return sized(widthType(width, jt::FunctionLoad32_v2, jt::FunctionLoad64_v2), payloadV2(record));
}

TraceWriter& TraceWriter::loadV3(const LoadRecord& record, Width width) {
    return sized(widthType(width, jt::FunctionLoad32_v3, jt::FunctionLoad64_v3), payloadV3(record));
}

TraceWriter& TraceWriter::functionUpdate(const LoadRecord& record) {
    return sized(jt::FunctionUpdate, payloadV3(record));
}

TraceWriter& TraceWriter::inlineLoad(const InlineRecord& record, Width width) {
    return sized(widthType(width, jt::FunctionInlineLoad32, jt::FunctionInlineLoad64), payloadInline(record));
}

TraceWriter& TraceWriter::updateV2(const UpdateV2Record& record) {
    return sized(jt::FunctionUpdate_v2, payloadUpdateV2(record));
}

TraceWriter& TraceWriter::sized(std::uint32_t type, const Bytes& payload) {
    return sizedWithSizeWord(type, static_cast<std::uint32_t>(payload.size()), payload);
}

TraceWriter& TraceWriter::sizedWithSizeWord(std::uint32_t type, std::uint32_t sizeWord, const Bytes& payload) {
    PayloadBuilder out;
    out.u32(type);
    out.u32(sizeWord);
    out.bytes(payload);
    return raw(out.take());
}

TraceWriter& TraceWriter::value(std::uint32_t type, std::uint32_t value) {
    PayloadBuilder out;
    out.u32(type);
    out.u32(value);
    return raw(out.take());
}

TraceWriter& TraceWriter::raw(const Bytes& bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

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
