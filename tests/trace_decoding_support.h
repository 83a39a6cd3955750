// Helpers of the tests that write a trace into a temporary directory and decode
// it record by record, the way the file reader does.
#ifndef KORVANE_TESTS_TRACE_DECODING_SUPPORT_H
#define KORVANE_TESTS_TRACE_DECODING_SUPPORT_H

#include "model_builders.h"
#include "test_support.h"

#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_trace_format.h"
#include "platform/debug.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace korvane_test {

const korvane_3_10::u32_t kPid = 4242;
const korvane_3_10::u32_t kHostId = 3;
const korvane_3_10::jit_rva_t kStartJitRva = 0x1000;
const korvane_3_10::address_t kRegionStart = 0x7f0000001000;

// Options of a decoder under test.
struct DecoderSetup {
    korvane_3_10::decoding_mode_t mode = korvane_3_10::dmFull;
    korvane_3_10::u32_t pid = kPid;
    korvane_3_10::u32_t hostId = kHostId;
    const korvane_3_10::JitFileDecoder::SearchRegionCallback* search = nullptr;
};

// One trace file on disk and the decoder that reads it.
class TraceFile {
public:
    explicit TraceFile(const korvane_tracewriter::TraceWriter& trace, DecoderSetup setup = DecoderSetup())
        : m_path(m_dir.write("4242.trace.jit", trace)),
          m_decoder(new korvane_3_10::JitFileDecoder(m_path, setup.pid, setup.hostId, kStartJitRva, setup.mode)) {
        m_decoder->setSearchCallback(setup.search);
    }

    korvane_3_10::JitFileDecoder& decoder() { return *m_decoder; }

    // The next record; the test fails unless framing succeeds.
    korvane_3_10::JitFileDecoder::Record next() {
        korvane_3_10::JitFileDecoder::Record record;
        EXPECT_EQ(meSuccess, m_decoder->getNextRecord(record)) << "record at offset " << record.offset;
        return record;
    }

private:
    TempDir m_dir;
    std::string m_path;
    std::unique_ptr<korvane_3_10::JitFileDecoder> m_decoder;
};

// Counts the assertion reports made while it lives.
class AssertionCounter {
public:
    AssertionCounter() : m_start(TOBREK_2_18::debug::assertionReportCount()) {}
    unsigned long reports() const { return TOBREK_2_18::debug::assertionReportCount() - m_start; }

private:
    unsigned long m_start;
};

// Decodes a code record with the operation the reader picks for its type.
inline bool decodeCodeRecord(korvane_3_10::JitFileDecoder& decoder, const korvane_3_10::JitFileDecoder::Record& record,
                             JitMethod::Ptr& method) {
    namespace jt = korvane_3_10::jittrace;
    switch (record.type) {
    case jt::FunctionLoad32:
    case jt::FunctionLoad64:
        return decoder.decodeMethodLoadRecordV0(record, method);
    case jt::FunctionLoad32_v1:
    case jt::FunctionLoad64_v1:
        return decoder.decodeMethodLoadRecordV1(record, method);
    case jt::FunctionLoad32_v2:
    case jt::FunctionLoad64_v2:
        return decoder.decodeMethodLoadRecordV2(record, method);
    case jt::FunctionInlineLoad32:
    case jt::FunctionInlineLoad64:
        return decoder.decodeMethodInlineLoadRecord(record, method);
    case jt::FunctionUpdate_v2:
        return decoder.decodeMethodUpdateRecordV2(record, method);
    default:
        return decoder.decodeMethodLoadRecordV3(record, method, nullptr);
    }
}

struct Decoded {
    bool accepted = false;
    JitMethod::Ptr method;
    korvane_3_10::jit_rva_t nextJitRva = 0;
    unsigned long assertions = 0;
};

// Frames every record of the trace and decodes each code record as it comes.
inline std::vector<Decoded> decodeAll(const korvane_tracewriter::TraceWriter& trace,
                                      DecoderSetup setup = DecoderSetup()) {
    TraceFile file(trace, setup);
    std::vector<Decoded> all;
    korvane_3_10::JitFileDecoder::Record record;
    while (file.decoder().getNextRecord(record) == meSuccess) {
        if (record.type == korvane_3_10::jittrace::Magic || record.type == korvane_3_10::jittrace::CollectorType)
            continue;
        Decoded decoded;
        decoded.method.reset(new JitMethod());
        const AssertionCounter counter;
        decoded.accepted = decodeCodeRecord(file.decoder(), record, decoded.method);
        decoded.assertions = counter.reports();
        decoded.nextJitRva = file.decoder().nextJitRva();
        all.push_back(decoded);
    }
    return all;
}

// The last code record of the trace, decoded.
inline Decoded decodeLast(const korvane_tracewriter::TraceWriter& trace, DecoderSetup setup = DecoderSetup()) {
    const std::vector<Decoded> all = decodeAll(trace, setup);
    EXPECT_FALSE(all.empty()) << "no code record was framed";
    return all.empty() ? Decoded() : all.back();
}

inline korvane_tracewriter::Bytes codeBytes(std::size_t count, std::uint8_t first = 0x10) {
    korvane_tracewriter::Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(first + i);
    return bytes;
}

// A load record with two code ranges, names, a source file and all three line tables.
inline korvane_tracewriter::LoadRecord richLoadRecord() {
    korvane_tracewriter::LoadRecord record;
    record.methodId = 77;
    record.methodToken = 0x6000012;
    record.loadTime = 0x5000;
    record.ranges = {{kRegionStart, 0x40, codeBytes(0x40)}, {kRegionStart + 0x1000, 0x20, codeBytes(0x18, 0x80)}};
    record.moduleName = "/opt/app/lib/app.so";
    record.methodName = "draw(int)";
    record.className = "ui.Widget";
    record.sourceFileName = "Widget.cs";
    record.checksumType = 2;
    record.checksum = "c0ffee";
    record.languageType = 3;
    record.managedToSource = {{0, 4, 10}, {4, 9, 11}};
    record.nativeToManaged = {{0, 0x10, 0}, {0x10, 0x40, 4}};
    record.nativeToSource = {{0, 0x20, 10}, {0x20, 0x40, 11}};
    return record;
}

inline korvane_tracewriter::InlineRecord richInlineRecord() {
    korvane_tracewriter::InlineRecord record;
    record.methodId = 91;
    record.parentId = 77;
    record.loadTime = 0x5100;
    record.startAddress = kRegionStart + 0x10;
    record.length = 0x10;
    record.code = codeBytes(0x10, 0x40);
    record.moduleName = "/opt/app/lib/app.so";
    record.methodName = "length()";
    record.className = "geo.Point";
    record.sourceFileName = "Point.cs";
    record.languageType = 3;
    record.nativeToSource = {{0, 8, 20}, {8, 0x10, 21}};
    return record;
}

inline korvane_tracewriter::UpdateV2Record richUpdateRecord() {
    korvane_tracewriter::UpdateV2Record record;
    record.segmentType = korvane_segment_type_t::stCode;
    record.loadTime = 0x6000;
    record.rangeName = "patch";
    record.startAddress = kRegionStart + 4;
    record.length = 4;
    record.code = {0xaa, 0xbb, 0xcc, 0xdd};
    return record;
}

// Answers every search with the region and method it holds, and keeps what it was asked.
class FakeRegionSearch : public korvane_3_10::JitFileDecoder::SearchRegionCallback {
public:
    korvane_error_t findRegion(korvane_3_10::u64_t address, korvane_3_10::u64_t time, korvane_3_10::u32_t pid,
                               korvane_3_10::u32_t hostId, Region::Ptr& region,
                               JitMethod::Ptr& method) const override {
        ++calls;
        asked = {address, time, pid, hostId};
        region = m_region;
        method = m_method;
        return m_result;
    }

    korvane_error_t m_result = meSuccess;
    Region::Ptr m_region;
    JitMethod::Ptr m_method;
    mutable int calls = 0;
    // Address, time, process and host of the last search.
    mutable std::vector<korvane_3_10::u64_t> asked;
};

// The region of a method with raw id 77 at kRegionStart, 0x10 bytes 00..0f, at jit RVA 0x500.
inline FakeRegionSearch foundRegion() {
    FakeRegionSearch search;
    search.m_region = makeRegion(kRegionStart, 0x10, 0x500, kPid, kHostId);
    search.m_region->setLoadTime(0x5000);
    search.m_region->setContent(makeBuffer(codeBytes(0x10, 0)));
    search.m_method = makeMethod(77);
    return search;
}

} // namespace korvane_test

#endif
