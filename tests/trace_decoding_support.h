// Test helpers that write a trace into a temporary directory and walk it with
// a decoder record by record, the way the file reader does.
#ifndef KORVANE_TESTS_TRACE_DECODING_SUPPORT_H
#define KORVANE_TESTS_TRACE_DECODING_SUPPORT_H

#include "test_support.h"

#include "jitreader/jit_file_decoder.h"
#include "platform/debug.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace korvane_test {

const korvane_3_10::u32_t kPid = 4242;
const korvane_3_10::u32_t kHostId = 3;
const korvane_3_10::jit_rva_t kStartJitRva = 0x1000;

// Options of a decoder under test.
struct DecoderSetup {
    korvane_3_10::decoding_mode_t mode = korvane_3_10::dmFull;
    korvane_3_10::u32_t pid = kPid;
    korvane_3_10::u32_t hostId = kHostId;
};

// One trace file on disk and the decoder that reads it.
class TraceFile {
public:
    explicit TraceFile(const korvane_tracewriter::TraceWriter& trace, DecoderSetup setup = DecoderSetup())
        : m_path(m_dir.write("4242.trace.jit", trace)),
          m_decoder(new korvane_3_10::JitFileDecoder(m_path, setup.pid, setup.hostId, kStartJitRva, setup.mode)) {}

    korvane_3_10::JitFileDecoder& decoder() { return *m_decoder; }
    const std::string& path() const { return m_path; }

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
                             korvane_3_10::JitMethod::Ptr& method) {
    switch (record.type) {
    case 0:
    case 2:
        return decoder.decodeMethodLoadRecordV0(record, method);
    case 4:
    case 5:
        return decoder.decodeMethodLoadRecordV1(record, method);
    case 6:
    case 7:
        return decoder.decodeMethodLoadRecordV2(record, method);
    case 11:
    case 12:
        return decoder.decodeMethodInlineLoadRecord(record, method);
    case 14:
        return decoder.decodeMethodUpdateRecordV2(record, method);
    default:
        return decoder.decodeMethodLoadRecordV3(record, method, nullptr);
    }
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
    record.ranges = {{0x7f0000001000, 0x40, codeBytes(0x40)}, {0x7f0000002000, 0x20, codeBytes(0x18, 0x80)}};
    record.moduleName = "/opt/app/lib/app.so";
    record.architecture = 1;
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
    record.startAddress = 0x7f0000001010;
    record.length = 0x10;
    record.code = codeBytes(0x10, 0x40);
    record.moduleName = "/opt/app/lib/app.so";
    record.architecture = 1;
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
    record.architecture = 1;
    record.rangeName = "patch";
    record.startAddress = 0x7f0000001004;
    record.length = 4;
    record.code = {0xaa, 0xbb, 0xcc, 0xdd};
    return record;
}

// Answers every search with the region and method it was given.
class FakeRegionSearch : public korvane_3_10::JitFileDecoder::SearchRegionCallback {
public:
    korvane_error_t findRegion(korvane_3_10::u64_t address, korvane_3_10::u64_t time, korvane_3_10::u32_t pid,
                               korvane_3_10::u32_t hostId, korvane_3_10::Region::Ptr& region,
                               korvane_3_10::JitMethod::Ptr& method) const override {
        ++calls;
        askedAddress = address;
        askedTime = time;
        askedPid = pid;
        askedHostId = hostId;
        region = m_region;
        method = m_method;
        return m_result;
    }

    korvane_error_t m_result = meSuccess;
    korvane_3_10::Region::Ptr m_region;
    korvane_3_10::JitMethod::Ptr m_method;
    mutable int calls = 0;
    mutable korvane_3_10::u64_t askedAddress = 0;
    mutable korvane_3_10::u64_t askedTime = 0;
    mutable korvane_3_10::u32_t askedPid = 0;
    mutable korvane_3_10::u32_t askedHostId = 0;
};

const korvane_3_10::address_t kRegionStart = 0x7f0000001000;

// The region of a method with raw id 77 at kRegionStart, 0x10 bytes 00..0f, at jit RVA 0x500.
inline FakeRegionSearch foundRegion() {
    FakeRegionSearch search;
    search.m_region.reset(new korvane_3_10::Region());
    search.m_region->setStartAddress(kRegionStart);
    search.m_region->setLength(0x10);
    search.m_region->setStartJitRva(0x500);
    search.m_region->setLoadTime(0x5000);
    search.m_region->setProcessId(korvane_test::kPid);
    search.m_region->setHostId(korvane_test::kHostId);
    const boost::shared_ptr<korvane_3_10::IByteBuffer> bytes = korvane_3_10::IByteBuffer::create();
    const korvane_tracewriter::Bytes image = korvane_test::codeBytes(0x10, 0);
    bytes->assign(image.data(), static_cast<korvane_3_10::u32_t>(image.size()));
    search.m_region->setContent(bytes);
    search.m_method.reset(new korvane_3_10::JitMethod());
    search.m_method->setRawMethodId(77);
    return search;
}

} // namespace korvane_test

#endif
