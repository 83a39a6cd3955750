// korvane-jit records: walks one .jit file record by record and shows what the decoder makes of each.
#include "argument_parser.h"
#include "command_registry.h"
#include "input_file.h"
#include "text_output.h"

#include "jitreader/jit_file_decoder.h"
#include "jitreader/jit_trace_format.h"
#include "jitreader/method_report.h"
#include "jitreader/payload_reader.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace korvane_tool {

namespace {

using namespace korvane_3_10;
typedef JitFileDecoder::Record Record;

const char kSynopsis[] = "records FILE [--modules-only] [--start-rva N]";
const char kUsage[] =
    "records FILE [--modules-only] [--start-rva N]\n"
    "  FILE            a trace file, or - for standard input redirected from one\n"
    "  --modules-only  decode as a loader does: no code bytes, oldest records stop after the module\n"
    "  --start-rva N   first jit RVA of the file (default 0x1, as for the first file read)\n"
    "The library's own messages go to stderr; korvane-jit --log-level INFO records FILE\n"
    "also shows each decoded method in full, disassembly included.\n"
    "records is the one internal diagnostic: it reads the file with the library's own\n"
    "decoder, where every other command goes through the library's public API.";

const char* recordTypeName(u32_t type) {
    const jittrace::RecordTypeInfo* info = jittrace::findRecordType(type);
    return info ? info->name : "unknown";
}

const char* errorName(korvane_error_t code) {
    switch (code) {
    case meSuccess: return "meSuccess";
    case meEndOfFile: return "meEndOfFile";
    case meNotFound: return "meNotFound";
    case meNotADirectory: return "meNotADirectory";
    case meFileNotCatalogued: return "meFileNotCatalogued";
    case meInvalidArgument: return "meInvalidArgument";
    case meMalformedRecord: return "meMalformedRecord";
    case meBufferTooSmall: return "meBufferTooSmall";
    case meFileNotOpen: return "meFileNotOpen";
    }
    return "unknown code";
}

// Lets update records find the code they change among the loads listed so far:
// the latest region loaded no later than the update that covers its address.
class ListedRegions : public SearchRegionCallback {
public:
    void add(const JitMethod::Ptr& method) {
        for (const Region::Ptr& region : method->codeRegions())
            m_regions.push_back(RegionOf{region, method});
    }

    korvane_error_t findRegion(u64_t address, u64_t time, u32_t, u32_t, Region::Ptr& region,
                               JitMethod::Ptr& method) const override {
        for (const RegionOf& candidate : m_regions) {
            const Region& listed = *candidate.region;
            const bool covers = address >= listed.startAddress() && address - listed.startAddress() < listed.length();
            if (covers && listed.loadTime() <= time && (!region || listed.loadTime() >= region->loadTime())) {
                region = candidate.region;
                method = candidate.method;
            }
        }
        return region ? meSuccess : meNotFound;
    }

private:
    struct RegionOf {
        Region::Ptr region;
        JitMethod::Ptr method;
    };
    std::vector<RegionOf> m_regions;
};

struct Tally {
    std::size_t records = 0;
    std::size_t decoded = 0;
    std::size_t refused = 0;
};

std::string displayName(const JitMethod& method) {
    const std::string qualified = method.getQualifiedMethodName();
    return qualified.empty() ? "(no name)" : qualified;
}

void printMethod(const JitMethod& method, std::ostream& out) {
    out << "    method   " << displayName(method) << "\n"
        << "             raw id " << hexText(method.getRawMethodId(), HexZero::bare);
    if (method.getRawParentId() != 0)
        out << ", raw parent id " << hexText(method.getRawParentId(), HexZero::bare);
    out << ", token " << hexText(method.getMethodToken(), HexZero::bare) << ", load time "
        << hexText(method.getLoadTime(), HexZero::bare) << ", jit RVA " << hexText(method.getStartJitRva(), HexZero::bare) << "\n";
    if (*method.getClassName())
        out << "    class    " << method.getClassName() << "\n";
    if (const IModule::Ptr module = method.getModule())
        out << "    module   " << module->getFilePath() << "  (" << architectureName(module->getArchitecture(), "unknown architecture")
            << (module->isBogus() == meSuccess ? ", no real file" : ", a real file") << ")\n";
    if (const ISourceFile::Ptr source = method.getSourceFile())
        out << "    source   " << source->getSourceFileName() << "\n";
    std::size_t index = 0;
    for (const Region::Ptr& region : method.codeRegions()) {
        out << "    region " << ++index << "  ip [" << hexText(region->startAddress(), HexZero::bare) << ", "
            << hexText(region->endAddress(), HexZero::bare) << ")  jit RVA ["
            << hexText(region->startJitRva(), HexZero::bare) << ", "
            << hexText(region->startJitRva() + region->length(), HexZero::bare) << ")  ";
        if (region->content())
            out << region->content()->size() << " code bytes\n";
        else
            out << "no code bytes kept\n";
    }
    if (method.codeRegions().empty())
        out << "    no code region\n";
    for (const auto& table : method.getLineNumberInfo())
        out << "    lines    for jit RVA [" << hexText(table.first.m_start, HexZero::bare) << ", "
            << hexText(table.first.end(), HexZero::bare) << "): managed to source "
            << table.second.managedToSource().size() << ", native to managed "
            << table.second.nativeToManaged().size() << ", native to source " << table.second.nativeToSource().size()
            << "\n";
}

// Decodes a code record as the reader would and says what came of it.
class RecordLister {
public:
    RecordLister(JitFileDecoder& decoder, std::ostream& out) : m_decoder(decoder), m_out(out), m_isInlined(0) {
        m_decoder.setSearchCallback(&m_listed);
    }

    void list(const Record& record, Tally& tally) {
        m_out << "@" << hexText(record.offset, HexZero::bare) << "  " << recordTypeName(record.type);
        ++tally.records;
        if (jittrace::findRecordType(record.type)->framing == jittrace::rfValue) {
            listValue(record);
            return;
        }
        m_out << "  " << record.data.size() << " payload bytes\n";
        JitMethod::Ptr method(new JitMethod());
        if (!decode(record, method)) {
            m_out << "    refused by the decoder; the reader skips this record\n";
            ++tally.refused;
            return;
        }
        ++tally.decoded;
        printMethod(*method, m_out);
        if (isTopLevelLoad(record))
            m_listed.add(method);
    }

private:
    void listValue(const Record& record) {
        // Framing gives value records their four bytes.
        const u32_t value = static_cast<u32_t>(littleEndian(record.data.data(), 4));
        m_out << "  value " << hexText(value, HexZero::bare);
        if (record.type == jittrace::CollectorType)
            m_out << (value == ctJitProfiler ? " (JIT profiler)" : " (another collector)");
        if (record.type == jittrace::Magic && record.offset != 0)
            m_out << "  -- a second trace begins here; the reader stops before it";
        m_out << "\n";
    }

    bool decode(const Record& record, JitMethod::Ptr& method) {
        const bool decoded = m_decoder.decodeCodeRecord(record, method, &m_isInlined);
        const bool isV3 = jittrace::findRecordType(record.type)->version == 3;
        if (isV3 && decoded && m_isInlined != 0)
            m_out << "    marked as inlined (flag " << static_cast<unsigned>(m_isInlined)
                  << "): its regions count from 0 and take no jit RVAs\n";
        return decoded;
    }

    // Inlines and older records behind an inlined V3 record don't own code of their own.
    bool isTopLevelLoad(const Record& record) const {
        return jittrace::findRecordType(record.type)->kind == jittrace::rkLoad && m_isInlined != 1;
    }

    JitFileDecoder& m_decoder;
    std::ostream& m_out;
    ListedRegions m_listed;
    korvane_bool_t m_isInlined;
};

// The last line of a listing that framing cut short.
void printStop(korvane_error_t result, const Record& record, std::ostream& out) {
    out << "stopped at " << hexText(record.offset, HexZero::bare) << ": " << errorName(result);
    if (result == meFileNotOpen) {
        out << ", the file could not be opened\n";
        return;
    }
    out << " in ";
    if (!jittrace::findRecordType(record.type))
        out << "a record of unknown type " << hexText(record.type, HexZero::bare);
    else
        out << "a " << recordTypeName(record.type) << " record";
    out << "; the library's message on stderr says what is broken, and a reader ends the file here\n";
}

// Lists records up to the first framing result other than success and returns it; record is the last one tried.
korvane_error_t walk(JitFileDecoder& decoder, Record& record, Tally& tally, std::ostream& out) {
    RecordLister lister(decoder, out);
    for (;;) {
        record = Record();
        const korvane_error_t result = decoder.getNextRecord(record);
        if (result != meSuccess)
            return result;
        lister.list(record, tally);
    }
}

u32_t pidOfFileName(const std::string& path) {
    u32_t pid = 0;
    ustring hostName;
    parseTraceFileName(boost::filesystem::path(path).filename().string(), pid, hostName);
    return pid;
}

// A FIFO would block the decoder's open() and a device would never end; "-" must be redirected from a file.
bool isRegularFile(const std::string& path, std::ostream& err) {
    const std::string refusal = InputFile::refusal(path);
    if (refusal.empty())
        return true;
    err << "korvane-jit records: " << (path == "-" ? "standard input" : path) << ": " << refusal
        << "; records reads a regular file" << (path == "-" ? ", e.g. < FILE" : "") << "\n";
    return false;
}

int listRecords(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({"--start-rva"}, {"--modules-only"});
    int exitCode = 0;
    if (!arguments.parseCommand(args, kUsage, out, err, exitCode))
        return exitCode;
    if (arguments.positional().size() != 1) {
        err << "Usage: korvane-jit " << kUsage << "\n";
        return 2;
    }
    std::uint64_t startJitRva = 1;
    if (!parseNumber(arguments.value("--start-rva", "1"), startJitRva)) {
        err << "korvane-jit records: --start-rva needs a number, decimal or 0x...\n";
        return 2;
    }
    const std::string path = arguments.positional().front();
    if (!isRegularFile(path, err))
        return 1;
    // The decoder seeks, so standard input is read through its name as the file it is.
    const std::string tracePath = path == "-" ? "/dev/stdin" : path;
    const decoding_mode_t mode = arguments.has("--modules-only") ? dmModulesOnly : dmFull;
    const u32_t pid = pidOfFileName(path);
    boost::system::error_code sizeError;
    const std::uintmax_t size = boost::filesystem::file_size(tracePath, sizeError);

    out << "trace " << path;
    if (!sizeError)
        out << ", " << size << " bytes";
    out << ", process " << pid << ", jit RVAs from " << hexText(startJitRva, HexZero::bare) << ", "
        << (mode == dmFull ? "code bytes kept" : "modules only") << "\n";

    JitFileDecoder decoder(tracePath, pid, 1, startJitRva, mode);
    Tally tally;
    Record record;
    const korvane_error_t result = walk(decoder, record, tally, out);

    out << countText(tally.records, "record", "records") << ": " << tally.decoded << " decoded, " << tally.refused
        << " refused by the decoder\n";
    if (result == meEndOfFile) {
        out << "end of file; the records took jit RVAs [" << hexText(startJitRva, HexZero::bare) << ", "
            << hexText(decoder.nextJitRva(), HexZero::bare) << ")\n";
        return 0;
    }
    printStop(result, record, out);
    return 1;
}

const CommandRegistration registration(Command{
    "records", kSynopsis,
    "Lists the records of one trace file with offsets, types and sizes, and what the decoder makes of each. "
    "The one internal diagnostic: it reads through the library's own decoder, not its public API.",
    listRecords});

} // namespace

} // namespace korvane_tool
