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

#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace korvane_test {

using korvane_tracewriter::Bytes;
using korvane_tracewriter::TraceWriter;
namespace jt = korvane_3_10::jittrace;

const korvane_3_10::jit_rva_t kStartJitRva = 0x1000;
const korvane_3_10::address_t kRegionStart = 0x7f0000001000;

// Options of a decoder under test.
struct DecoderSetup {
    korvane_3_10::decoding_mode_t mode = korvane_3_10::dmFull;
    korvane_3_10::u32_t pid = kPid;
    korvane_3_10::u32_t hostId = kHost;
    const korvane_3_10::SearchRegionCallback* search = nullptr;
};

inline DecoderSetup withMode(korvane_3_10::decoding_mode_t mode) {
    DecoderSetup setup;
    setup.mode = mode;
    return setup;
}

// One trace file on disk and the decoder that reads it.
class TraceFile {
public:
    explicit TraceFile(const TraceWriter& trace, DecoderSetup setup = DecoderSetup())
        : m_decoder(m_dir.write("4242.trace.jit", trace), setup.pid, setup.hostId, kStartJitRva, setup.mode) {
        m_decoder.setSearchCallback(setup.search);
    }

    korvane_3_10::JitFileDecoder& decoder() { return m_decoder; }

    // The next record; the test fails unless framing succeeds.
    korvane_3_10::JitFileDecoder::Record next() {
        korvane_3_10::JitFileDecoder::Record record;
        EXPECT_EQ(meSuccess, m_decoder.getNextRecord(record)) << "record at offset " << record.offset;
        return record;
    }

private:
    TempDir m_dir;
    korvane_3_10::JitFileDecoder m_decoder;
};

struct Decoded {
    bool accepted = false;
    JitMethod::Ptr method;
    korvane_3_10::jit_rva_t nextJitRva = 0;
    unsigned long assertions = 0; // reports made while the record was decoded
};

// Frames every record of the trace and decodes each code record as it comes.
inline std::vector<Decoded> decodeAll(const TraceWriter& trace, DecoderSetup setup = DecoderSetup()) {
    TraceFile file(trace, setup);
    std::vector<Decoded> all;
    korvane_3_10::JitFileDecoder::Record record;
    while (file.decoder().getNextRecord(record) == meSuccess) {
        if (jt::findRecordType(record.type)->framing == jt::rfValue)
            continue;
        Decoded decoded;
        decoded.method.reset(new JitMethod());
        const unsigned long reports = TOBREK_2_18::debug::assertionReportCount();
        decoded.accepted = file.decoder().decodeCodeRecord(record, decoded.method, nullptr);
        decoded.assertions = TOBREK_2_18::debug::assertionReportCount() - reports;
        decoded.nextJitRva = file.decoder().nextJitRva();
        all.push_back(decoded);
    }
    return all;
}

// The last code record of the trace, decoded.
inline Decoded decodeLast(const TraceWriter& trace, DecoderSetup setup = DecoderSetup()) {
    const std::vector<Decoded> all = decodeAll(trace, setup);
    EXPECT_FALSE(all.empty()) << "no code record was framed";
    return all.empty() ? Decoded() : all.back();
}

inline void describeTable(std::ostream& text, const char* name, korvane_3_10::LineInfoHolder::Table entries) {
    text << name;
    for (const korvane_line_number_entry& entry : entries)
        text << ' ' << entry.startOffset << '-' << entry.endOffset << ':' << entry.lineNumber;
}

// What the decoder made of a method, a line a part, so that tests compare whole methods at once.
// Numbers are hex but for processes, hosts and line tables.
inline std::string describe(const JitMethod& method) {
    std::ostringstream text;
    text << std::hex << "raw " << method.getRawMethodId() << '/' << method.getRawParentId() << " token "
         << method.getMethodToken() << " load " << method.getLoadTime() << " rva " << method.getStartJitRva()
         << "\nname " << method.getQualifiedMethodName() << '\n';
    if (method.getModule())
        text << "module " << method.getModule()->getFilePath() << " arch " << method.getModule()->getArchitecture()
             << (method.getModule()->isBogus() == meSuccess ? " bogus\n" : "\n");
    if (const korvane_3_10::ISourceFile::Ptr source = method.getSourceFile())
        text << "source " << source->getSourceFileName() << ' ' << source->getChecksum() << ' '
             << source->getChecksumType() << ' ' << source->getLanguageType() << '\n';
    for (const Region::Ptr& region : method.codeRegions()) {
        text << "region " << region->startAddress() << '+' << region->length() << " rva " << region->startJitRva()
             << " load " << region->loadTime() << std::dec << " pid " << region->processId() << " host "
             << region->hostId() << std::hex << (region->getBytes() ? " bytes " : " no bytes");
        for (unsigned char byte : bytesOf(region->getBytes()))
            text << std::setw(2) << std::setfill('0') << unsigned(byte);
        text << '\n';
    }
    for (const JitMethod::LineNumberInfo::value_type& tables : method.getLineNumberInfo()) {
        text << "lines " << tables.first.m_start << '+' << tables.first.m_length << std::dec;
        describeTable(text, " m2s", tables.second.managedToSource());
        describeTable(text, " n2m", tables.second.nativeToManaged());
        describeTable(text, " n2s", tables.second.nativeToSource());
        text << std::hex << '\n';
    }
    return text.str();
}

inline Bytes codeBytes(std::size_t count, std::uint8_t first = 0x10) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(first + i);
    return bytes;
}

// A load record with two code ranges, the second with fewer bytes than its length,
// names, a source file and all three line tables.
inline korvane_tracewriter::LoadRecord richLoadRecord() {
    korvane_tracewriter::LoadRecord record;
    record.methodId = 77;
    record.methodToken = 0x6000012;
    record.loadTime = 0x5000;
    record.ranges = {{kRegionStart, 0x10, codeBytes(0x10)}, {kRegionStart + 0x1000, 8, codeBytes(4, 0x80)}};
    record.moduleName = "/opt/app/lib/app.so";
    record.methodName = "draw(int)";
    record.className = "ui.Widget";
    record.sourceFileName = "Widget.cs";
    record.checksumType = 2;
    record.checksum = "c0ffee";
    record.languageType = 3;
    record.managedToSource = {{0, 4, 10}, {4, 9, 11}};
    record.nativeToManaged = {{0, 8, 0}, {8, 0x10, 4}};
    record.nativeToSource = {{0, 8, 10}, {8, 0x10, 11}};
    return record;
}

// An inline of the rich load's method, in its first range.
inline korvane_tracewriter::InlineRecord richInlineRecord() {
    korvane_tracewriter::InlineRecord record;
    record.methodId = 91;
    record.parentId = 77;
    record.loadTime = 0x5100;
    record.startAddress = kRegionStart + 8;
    record.length = 8;
    record.code = codeBytes(8, 0x40);
    record.moduleName = "/opt/app/lib/app.so";
    record.methodName = "length()";
    record.className = "geo.Point";
    record.sourceFileName = "Point.cs";
    record.languageType = 3;
    record.nativeToSource = {{0, 4, 20}, {4, 8, 21}};
    return record;
}

// A code update of 4 bytes in the rich load's first range.
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
class FakeRegionSearch : public korvane_3_10::SearchRegionCallback {
public:
    korvane_error_t findRegion(korvane_3_10::u64_t address, korvane_3_10::u64_t time, korvane_3_10::u32_t pid,
                               korvane_3_10::u32_t hostId, Region::Ptr& region,
                               JitMethod::Ptr& method) const override {
        asked.push_back({address, time, pid, hostId});
        region = m_region;
        method = m_method;
        return m_result;
    }

    korvane_error_t m_result = meSuccess;
    Region::Ptr m_region;
    JitMethod::Ptr m_method;
    // Address, time, process and host of each search.
    mutable std::vector<std::vector<korvane_3_10::u64_t>> asked;
};

// The region of a method with raw id 77 at kRegionStart, 0x10 bytes 00..0f, at jit RVA 0x500.
inline FakeRegionSearch foundRegion() {
    FakeRegionSearch search;
    search.m_region = regionAt(kRegionStart, 0x10).rva(0x500).in(kPid, kHost);
    search.m_region->setLoadTime(0x5000);
    search.m_region->setContent(bufferOf(codeBytes(0x10, 0)));
    search.m_method = methodOf(77);
    return search;
}

} // namespace korvane_test

#endif
