// Builds the load, inline and update records of the example traces from a few facts each.
#include "example_records.h"

#include <algorithm>

namespace korvane_examples {

using korvane_tracewriter::Bytes;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::LineEntry;
using korvane_tracewriter::LoadRecord;
using korvane_tracewriter::UpdateV2Record;

namespace {

// A compiler's typical granularity: one source line per 16 bytes of code.
const std::uint32_t kBytesPerLine = 0x10;
// Bytecode offsets grow slower than machine code.
const std::uint32_t kIlPerLine = 6;

std::vector<LineEntry> nativeToSource(const MethodFacts& facts) {
    std::vector<LineEntry> entries;
    for (std::uint32_t offset = 0, line = facts.firstLine; offset < facts.length; offset += kBytesPerLine, ++line)
        entries.push_back(LineEntry{offset, std::min(offset + kBytesPerLine, facts.length), line});
    return entries;
}

std::vector<LineEntry> nativeToManaged(const MethodFacts& facts) {
    std::vector<LineEntry> entries;
    for (std::uint32_t offset = 0, il = 0; offset < facts.length; offset += kBytesPerLine, il += kIlPerLine)
        entries.push_back(LineEntry{offset, std::min(offset + kBytesPerLine, facts.length), il});
    return entries;
}

std::vector<LineEntry> managedToSource(const MethodFacts& facts) {
    std::vector<LineEntry> entries;
    const std::uint32_t lines = (facts.length + kBytesPerLine - 1) / kBytesPerLine;
    for (std::uint32_t index = 0; index < lines; ++index)
        entries.push_back(LineEntry{index * kIlPerLine, (index + 1) * kIlPerLine, facts.firstLine + index});
    return entries;
}

} // namespace

Bytes ExampleRecords::code(const MethodFacts& facts, unsigned variant) const {
    return CodeBytes(m_width, facts.address, facts.length).calls(facts.calls).variant(variant).build();
}

LoadRecord ExampleRecords::load(const MethodFacts& facts, LineTables tables) const {
    LoadRecord record;
    record.methodId = facts.id;
    record.methodToken = facts.token;
    record.loadTime = facts.loadTime;
    record.ranges.push_back({facts.address, facts.length, code(facts, facts.id)});
    record.moduleName = facts.module;
    record.architecture = architecture();
    record.methodName = facts.methodName;
    record.className = facts.className;
    record.sourceFileName = facts.sourceFile;
    record.languageType = facts.languageType;
    // Precompiled and generated code often comes without any source.
    if (facts.sourceFile.empty())
        return record;
    if (tables == NativeToSource) {
        record.nativeToSource = nativeToSource(facts);
    } else {
        record.nativeToManaged = nativeToManaged(facts);
        record.managedToSource = managedToSource(facts);
    }
    return record;
}

InlineRecord ExampleRecords::inlined(const MethodFacts& facts) const {
    InlineRecord record;
    record.methodId = facts.id;
    record.parentId = facts.parentId;
    record.loadTime = facts.loadTime;
    record.startAddress = facts.address;
    record.length = facts.length;
    record.code = code(facts, facts.id);
    record.moduleName = facts.module;
    record.architecture = architecture();
    record.methodName = facts.methodName;
    record.className = facts.className;
    record.sourceFileName = facts.sourceFile;
    record.languageType = facts.languageType;
    if (!facts.sourceFile.empty())
        record.nativeToSource = nativeToSource(facts);
    return record;
}

LoadRecord ExampleRecords::patch(const MethodFacts& facts, std::uint64_t address, const Bytes& bytes,
                                 std::uint64_t time) const {
    LoadRecord record = load(facts);
    record.loadTime = time;
    record.ranges = {{address, static_cast<std::uint32_t>(bytes.size()), bytes}};
    record.managedToSource.clear();
    record.nativeToManaged.clear();
    record.nativeToSource.clear();
    return record;
}

UpdateV2Record ExampleRecords::replace(const MethodFacts& facts, const std::string& rangeName,
                                       std::uint64_t time) const {
    UpdateV2Record record;
    record.segmentType = 1;
    record.loadTime = time;
    record.architecture = architecture();
    record.rangeName = rangeName;
    record.startAddress = facts.address;
    record.length = facts.length;
    record.code = code(facts, facts.id + 7);
    return record;
}

} // namespace korvane_examples
