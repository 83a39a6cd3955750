// Writes a set of .jit traces shaped like those of a large service, deterministic for a seed.
#include "trace_set_writer.h"

#include "tracewriter/trace_writer.h"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace korvane_bench {

namespace {

namespace tw = korvane_tracewriter;
namespace fs = boost::filesystem;

const std::uint64_t kBaseAddress = 0x7f3000000000ull;
const std::uint16_t kLanguageJava = 5;
const std::uint32_t kFirstInlineId = 0x40000000;
const char* const kMarkerName = "trace-set.txt";

// Deterministic for a seed with any standard library: no distributions.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}
    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(m_engine() % bound); }
    bool chance(std::uint32_t percent) { return below(100) < percent; }
    tw::Bytes code(std::uint32_t length) {
        tw::Bytes bytes(length);
        for (std::uint32_t offset = 0; offset < length; offset += 8) {
            const std::uint64_t word = m_engine();
            for (std::uint32_t index = 0; index < 8 && offset + index < length; ++index)
                bytes[offset + index] = static_cast<std::uint8_t>(word >> (8 * index));
        }
        return bytes;
    }

private:
    std::mt19937_64 m_engine;
};

std::string markerText(const TraceSetShape& shape) {
    std::ostringstream text;
    text << shape.methods << ' ' << shape.filesPerProcess << ' ' << shape.seed;
    return text.str();
}

std::vector<tw::LineEntry> threeLines(std::uint32_t length, std::uint32_t firstLine) {
    const std::uint32_t third = length / 3;
    return {{0, third, firstLine}, {third, 2 * third, firstLine + 1}, {2 * third, length, firstLine + 2}};
}

// One process: its methods laid out in address order, each tenth over older code,
// spread over its files in order of loading.
class ProcessWriter {
public:
    ProcessWriter(const TraceSetShape& shape, std::uint32_t process, std::uint32_t methods)
        : m_shape(shape), m_process(process), m_methods(methods), m_java(process % 2 == 0),
          m_random(shape.seed * 1000003 + process), m_nextAddress(kBaseAddress), m_nextInlineId(kFirstInlineId) {}

    void write(const std::string& directory, TraceSetSummary& summary) {
        std::uint32_t method = 0;
        for (std::uint32_t file = 0; file < m_shape.filesPerProcess; ++file) {
            const std::uint32_t end =
                static_cast<std::uint32_t>(std::uint64_t(m_methods) * (file + 1) / m_shape.filesPerProcess);
            tw::TraceWriter trace;
            trace.magic();
            if (m_java)
                trace.collectorType(tw::TraceWriter::kCollectorJitProfiler);
            for (; method < end; ++method)
                writeMethod(method, trace, summary);
            const fs::path path = fs::path(directory) / fileName(file);
            trace.writeTo(path.string());
            summary.bytes += trace.size();
            summary.files.push_back(path.string());
        }
    }

private:
    struct Placed {
        std::uint64_t address;
        std::uint32_t length;
    };

    std::string fileName(std::uint32_t file) const {
        char index[16];
        std::snprintf(index, sizeof index, "%04u", file);
        const std::string host = m_process < TraceSetWriter::kProcesses / 2 ? "svc-a.example.net" : "svc-b.example.net";
        return host + "." + std::to_string(2000 + 137 * m_process) + "-" + index + ".jit";
    }

    void writeMethod(std::uint32_t index, tw::TraceWriter& trace, TraceSetSummary& summary) {
        const std::uint32_t length = 64 + 16 * m_random.below(29);
        const bool over = !m_placed.empty() && m_random.chance(10);
        std::uint64_t address = m_nextAddress;
        if (over) {
            const Placed& older = m_placed[m_random.below(static_cast<std::uint32_t>(m_placed.size()))];
            address = older.address + (older.length / 2 & ~15u);
        } else {
            m_nextAddress += length + 16 * m_random.below(4);
        }
        m_placed.push_back({address, length});
        const bool inlined = !over && m_random.chance(20);
        const bool nested = inlined && m_random.chance(25);
        // Ids link inlines to their parent, so they may come first; addresses can't.
        const bool early = inlined && m_java && m_random.chance(10);

        const tw::LoadRecord load = loadRecord(index, address, length);
        std::vector<tw::InlineRecord> inlines;
        if (inlined) {
            inlines.push_back(inlineRecord(load, load.methodId, address + (length / 4 & ~15u), length / 2 & ~15u));
            if (nested) {
                const tw::InlineRecord& outer = inlines.front();
                inlines.push_back(inlineRecord(load, outer.methodId, outer.startAddress + 8, outer.length / 2));
            }
        }
        if (!early)
            writeLoad(load, trace);
        for (const tw::InlineRecord& record : inlines)
            trace.inlineLoad(record);
        if (early)
            writeLoad(load, trace);
        summary.loadRecords += 1;
        summary.inlineRecords += inlines.size();
        summary.codeBytes += length;
        for (const tw::InlineRecord& record : inlines)
            summary.codeBytes += record.code.size();
    }

    void writeLoad(const tw::LoadRecord& load, tw::TraceWriter& trace) const {
        if (m_java)
            trace.loadV3(load);
        else
            trace.loadV2(load);
    }

    tw::LoadRecord loadRecord(std::uint32_t index, std::uint64_t address, std::uint32_t length) {
        const std::uint32_t type = index / 8;
        tw::LoadRecord record;
        record.methodId = index + 1;
        record.loadTime = 1000 + 16 * std::uint64_t(index);
        record.ranges.push_back({address, length, m_random.code(length)});
        record.nativeToSource = threeLines(length, 10 + index % 700);
        if (m_java) {
            record.className = "Lcom/example/svc" + std::to_string(type % 40) + "/Handler" + std::to_string(type) + ";";
            record.methodName = "handle" + std::to_string(index % 8) + "(Ljava/lang/String;I[J)Ljava/util/List;";
            record.sourceFileName = "Handler" + std::to_string(type) + ".java";
            record.languageType = kLanguageJava;
            return record;
        }
        record.methodToken = 0x06000000 + index;
        record.moduleName = "/opt/svc/lib/libsvc" + std::to_string(type % 16) + ".so";
        record.className = "Svc.Orders.Handler" + std::to_string(type);
        record.methodName = "Handle" + std::to_string(index % 8);
        record.sourceFileName = "Handler" + std::to_string(type) + ".cs";
        return record;
    }

    tw::InlineRecord inlineRecord(const tw::LoadRecord& parent, std::uint32_t parentId, std::uint64_t address,
                                  std::uint32_t length) {
        const std::uint32_t id = m_nextInlineId++;
        const std::uint32_t value = id % 100;
        tw::InlineRecord record;
        // Without a collector that gives ids, inlines are placed by their address alone.
        record.methodId = m_java ? id : 0;
        record.parentId = m_java ? parentId : 0;
        record.loadTime = parent.loadTime;
        record.startAddress = address;
        record.length = length;
        record.code = m_random.code(length);
        record.nativeToSource.push_back({0, length, 40 + value});
        if (m_java) {
            record.className = "Lcom/example/model/Value" + std::to_string(value) + ";";
            record.methodName = "get" + std::to_string(id % 4) + "()I";
            record.sourceFileName = "Value" + std::to_string(value) + ".java";
            record.languageType = kLanguageJava;
            return record;
        }
        record.moduleName = parent.moduleName;
        record.className = "Svc.Model.Value" + std::to_string(value);
        record.methodName = "Get" + std::to_string(id % 4);
        record.sourceFileName = "Value" + std::to_string(value) + ".cs";
        return record;
    }

    const TraceSetShape& m_shape;
    const std::uint32_t m_process;
    const std::uint32_t m_methods;
    const bool m_java;
    Random m_random;
    std::uint64_t m_nextAddress;
    std::uint32_t m_nextInlineId;
    std::vector<Placed> m_placed;
};

} // namespace

TraceSetSummary TraceSetWriter::write(const TraceSetShape& shape, const std::string& directory) {
    TraceSetSummary summary;
    for (std::uint32_t process = 0; process < kProcesses; ++process) {
        const std::uint32_t methods = static_cast<std::uint32_t>(
            std::uint64_t(shape.methods) * (process + 1) / kProcesses - std::uint64_t(shape.methods) * process / kProcesses);
        ProcessWriter(shape, process, methods).write(directory, summary);
    }
    std::sort(summary.files.begin(), summary.files.end());
    std::ofstream marker((fs::path(directory) / kMarkerName).string());
    marker << markerText(shape) << '\n'
           << summary.loadRecords << ' ' << summary.inlineRecords << ' ' << summary.bytes << ' ' << summary.codeBytes
           << '\n';
    if (!marker)
        throw std::runtime_error("can't write the marker of the trace set in " + directory);
    return summary;
}

bool TraceSetWriter::findWritten(const TraceSetShape& shape, const std::string& directory, TraceSetSummary& summary) {
    std::ifstream marker((fs::path(directory) / kMarkerName).string());
    std::string line;
    if (!std::getline(marker, line) || line != markerText(shape))
        return false;
    if (!(marker >> summary.loadRecords >> summary.inlineRecords >> summary.bytes >> summary.codeBytes))
        return false;
    summary.files.clear();
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry)
        if (entry->path().extension() == ".jit")
            summary.files.push_back(entry->path().string());
    std::sort(summary.files.begin(), summary.files.end());
    return summary.files.size() == std::size_t(kProcesses) * shape.filesPerProcess;
}

} // namespace korvane_bench
