// The text report of a method, disassembly included, and the list of its live regions.
#include "jitreader/method_report.h"

#include "jitreader/code_dump.h"
#include "jitreader/logging.h"
#include "jitreader/prefixed_hex.h"

#include <algorithm>
#include <vector>

namespace korvane_3_10 {

namespace {

struct TableHeader {
    korvane_line_info_type type;
    const char* text;
};

const TableHeader g_tableHeaders[] = {
    {ltManagedToSource, "Managed to source map: (ILOffset, lineNo)"},
    {ltNativeToManaged, "Native to managed map: (nativeStartOffset-nativeEndOffset, ILOffset)"},
    {ltNativeToSource, "Native to source map: (nativeStartOffset-nativeEndOffset, LineNo)"},
};

void dumpLineTable(std::ostream& stream, const JitMethod& method, const TableHeader& header, jit_rva_t jitRva) {
    u32_t count = 0;
    if (method.getLineNumberInfo(header.type, nullptr, &count, jitRva) != meSuccess)
        count = 0;
    stream << header.text << std::endl << "number of lines: " << std::dec << count;
    if (count == 0)
        return;
    std::vector<korvane_line_number_entry> entries(count, korvane_line_number_entry{0, 0, 0});
    method.getLineNumberInfo(header.type, entries.data(), &count, jitRva);
    for (const korvane_line_number_entry& entry : entries) {
        stream << std::endl << "    " << entry.startOffset << "-" << entry.endOffset << "  " << entry.lineNumber;
    }
}

void dumpCodeRegion(std::ostream& stream, const JitMethod& method, const Region& region, u32_t number,
                    korvane_arch arch) {
    stream << "  Code region:   " << std::dec << number << std::endl
           << "  JitRVA range:  " << prefixedHex(region.startJitRva()) << "-"
           << prefixedHex(region.startJitRva() + region.length()) << std::endl
           << "  startAddr:     " << prefixedHex(region.startAddress()) << std::endl
           << "  size:          " << prefixedHex(region.length()) << std::endl
           << "  IP range:      " << prefixedHex(region.startAddress()) << "-" << prefixedHex(region.endAddress())
           << std::endl
           << "  Disassembly:" << std::endl;
    if (region.content()) {
        const u32_t size = std::min(region.length(), region.content()->size());
        dumpCodeDisassembly(stream, static_cast<const unsigned char*>(region.content()->data()), size,
                            region.startAddress(), arch);
    }
    for (std::size_t index = 0; index < sizeof g_tableHeaders / sizeof g_tableHeaders[0]; ++index) {
        if (index != 0)
            stream << std::endl;
        dumpLineTable(stream, method, g_tableHeaders[index], region.startJitRva());
    }
}

} // namespace

const char* architectureName(korvane_arch arch, const char* unknown) {
    switch (arch) {
    case arch_xa32:
        return "xa32";
    case arch_xa64:
        return "xa64";
    case arch_wa64:
        return "wa64";
    case arch_cc64:
        return "cc64";
    }
    return unknown;
}

std::ostream& operator<<(std::ostream& stream, const JitMethod& method) {
    const std::ios_base::fmtflags flags = stream.flags();
    const Module::Ptr& module = method.methodInfo()->m_module;
    KORVANE_ASSERT(module);
    if (!module)
        return stream;
    // Numbers print the same whatever the caller's stream was set to; the
    // report has always left the fill at '0' behind it.
    stream.flags(std::ios_base::dec);
    stream.fill('0');
    const SourceFileInfo& sourceFile = method.methodInfo()->m_sourceFile;
    stream << "Method id:       " << prefixedHex(method.getRawMethodId()) << std::endl
           << "Parent id:       " << prefixedHex(method.getRawParentId()) << std::endl
           << "Metadata token:  " << prefixedHex(method.getMethodToken()) << std::endl
           << "Load time:       " << prefixedHex(method.getLoadTime()) << std::endl
           << "Name:            " << method.getMethodName() << std::endl
           << "Full name:       " << method.getQualifiedMethodName() << std::endl
           << "Class:           " << method.getClassName() << std::endl
           << "Module:          " << module->getFilePath() << std::endl
           << "Module arch:     " << architectureName(module->getArchitecture()) << std::endl
           << "Source file:     " << sourceFile.fileName() << std::endl
           << "Checksum type:   " << std::hex << sourceFile.getChecksumType() << std::endl
           << "Checksum:        " << sourceFile.checksum() << std::endl
           << "Language type:   " << std::hex << sourceFile.getLanguageType() << std::endl
           << "Code info:" << std::endl
           << "number of code regions: " << std::dec << method.regionCount() << std::endl;
    u32_t number = 0;
    for (const Region::Ptr& region : method.codeRegions())
        dumpCodeRegion(stream, method, *region, ++number, module->getArchitecture());
    stream.flags(flags);
    return stream;
}

korvane_error_t writeSymbolReport(const ISymbol& symbol, std::ostream& stream) {
    // Every symbol the front ends give is a method of this library.
    const JitMethod* method = dynamic_cast<const JitMethod*>(&symbol);
    if (!method || !method->getModule())
        return meNotFound;
    stream << *method;
    return meSuccess;
}

std::string dumpRegions(const JitMethod& method) {
    ustringstream stream;
    u32_t number = 0;
    // Logged at every inline that joins the method: bounded, so that the log
    // stays in proportion to the records however many inlines a method has.
    u32_t budget = kMaxReportedInlines;
    for (const Region::Ptr& region : method.codeRegions()) {
        ++number;
        if (region->unloadTime() != 0)
            continue;
        stream << std::endl
               << "Code region #" << std::dec << number << " (ip range = " << prefixedHex(region->startAddress()) << "-"
               << prefixedHex(region->endAddress()) << ")";
        region->dumpInlines(stream, 4, budget);
    }
    return stream.str();
}

} // namespace korvane_3_10
