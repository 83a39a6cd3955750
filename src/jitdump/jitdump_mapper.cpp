// Turns the records of one jitdump file into the load records of a .jit trace.
#include "jitdump/jitdump_mapper.h"

#include "jitdump/runtime_name.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace korvane_jitdump {

namespace {

using korvane_tracewriter::LineEntry;
using korvane_tracewriter::LoadRecord;

// Large enough that writes are few, small enough that the buffer stays in the cache.
const std::size_t kBlockSize = 1 << 18;
// Most records fit behind a block that is not yet full without the buffer growing.
const std::size_t kBlockSlack = 1 << 16;

// Texts of a .jit load record are read as empty from this length on; a cut name says more.
const std::size_t kLongestText = 511;

void assignLimited(std::string& field, std::string_view text) { field.assign(text.substr(0, kLongestText)); }

bool beforeByAddress(const DebugEntry& a, const DebugEntry& b) { return a.address < b.address; }

// Each entry's line holds from its offset to the next entry's, the last one to the end of the
// code. False if an entry lies outside the code: then the record does not describe this code.
// The file is that of the first entry, none without entries.
bool lineTableOf(const DebugInfo& info, std::uint64_t codeSize, std::vector<LineEntry>& table,
                 const std::string*& file) {
    for (const DebugEntry& entry : info.entries) {
        if (entry.address < info.codeAddress || entry.address - info.codeAddress >= codeSize)
            return false;
    }
    // Runtimes write the entries in address order; only others are sorted, on a copy.
    std::vector<DebugEntry> sorted;
    if (!std::is_sorted(info.entries.begin(), info.entries.end(), beforeByAddress)) {
        sorted = info.entries;
        std::stable_sort(sorted.begin(), sorted.end(), beforeByAddress);
    }
    const std::vector<DebugEntry>& points = sorted.empty() ? info.entries : sorted;
    table.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const std::uint64_t start = points[i].address - info.codeAddress;
        const std::uint64_t end = i + 1 < points.size() ? points[i + 1].address - info.codeAddress : codeSize;
        if (end == start || points[i].line <= 0)
            continue;
        table.push_back({static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end),
                         static_cast<std::uint32_t>(points[i].line)});
    }
    if (!info.entries.empty())
        file = &info.fileNames[info.entries.front().file];
    return true;
}

} // namespace

JitdumpMapper::JitdumpMapper(const FileHeader& header, korvane_tracewriter::TraceFile* file)
    : m_file(file),
      m_width(header.elfMachine == kElfMachineX86 ? korvane_tracewriter::Width::Bits32
                                                  : korvane_tracewriter::Width::Bits64),
      m_lastMethodId(0) {
    m_trace.reserve(kBlockSize + kBlockSlack);
    m_load.architecture = m_width == korvane_tracewriter::Width::Bits32 ? 0 : 1;
    m_load.ranges.resize(1);
}

void JitdumpMapper::attachLines(std::uint64_t codeAddress, LoadSource& source) {
    const auto pending = m_pendingLines.find(codeAddress);
    if (pending == m_pendingLines.end())
        return;
    const std::string* file = nullptr;
    if (lineTableOf(pending->second, source.length, source.lines, file)) {
        m_counts.lineEntries += source.lines.size();
        if (file)
            assignLimited(source.linesFile, *file);
    } else {
        ++m_counts.skipped;
    }
    m_pendingLines.erase(pending);
}

void JitdumpMapper::codeLoad(const CodeLoad& record) {
    if (record.codeSize == 0 || record.codeSize > std::numeric_limits<std::uint32_t>::max()) {
        ++m_counts.skipped;
        return;
    }
    LoadSource& source = m_loads[record.codeIndex];
    source = LoadSource{++m_lastMethodId, static_cast<std::uint32_t>(record.codeSize), record.code, record.name,
                        {}, {}};
    attachLines(record.codeAddress, source);
    write(source, record.head.timestamp, record.codeAddress);
    ++m_counts.loads;
}

void JitdumpMapper::codeMove(const CodeMove& record) {
    const auto original = m_loads.find(record.codeIndex);
    if (original == m_loads.end() || original->second.length != record.codeSize) {
        ++m_counts.skipped;
        return;
    }
    write(original->second, record.head.timestamp, record.newCodeAddress);
    ++m_counts.moves;
}

// The load is built in the one record kept for writing, so that its texts and tables
// keep their memory from load to load; the line table is lent to it for the write.
void JitdumpMapper::write(LoadSource& source, std::uint64_t loadTime, std::uint64_t address) {
    m_load.methodId = source.methodId;
    m_load.loadTime = loadTime;
    m_load.ranges.front() = {address, source.length, {}, source.code};
    const RuntimeName name = RuntimeName::create(source.name);
    assignLimited(m_load.methodName, name.method());
    assignLimited(m_load.sourceFileName, source.linesFile.empty() ? name.sourceFile() : source.linesFile);
    m_load.nativeToSource.swap(source.lines);
    m_trace.loadV3(m_load, m_width);
    m_load.nativeToSource.swap(source.lines);
    drain(kBlockSize);
}

// One write to the file per block rather than per record.
void JitdumpMapper::drain(std::size_t atLeast) {
    if (m_trace.size() < atLeast)
        return;
    if (m_file && m_writeProblem.empty())
        m_file->append(m_trace, m_writeProblem);
    m_trace.clear();
}

void JitdumpMapper::debugInfo(DebugInfo& record) {
    const auto earlier = m_pendingLines.find(record.codeAddress);
    if (earlier == m_pendingLines.end()) {
        m_pendingLines.emplace(record.codeAddress, std::move(record));
        return;
    }
    ++m_counts.skipped;
    earlier->second = std::move(record);
}

void JitdumpMapper::skipped(const RecordHeader&, JitdumpReader::SkipReason) { ++m_counts.skipped; }

void JitdumpMapper::finish() {
    m_counts.skipped += m_pendingLines.size();
    drain(1);
}

} // namespace korvane_jitdump
