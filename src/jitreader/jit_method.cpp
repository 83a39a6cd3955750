// One compiled method: identity and names, lifetime, code regions, line tables.
#include "jitreader/jit_method.h"

#include "jitreader/logging.h"
#include "jitreader/source_file.h"
#include "jitreader/source_location.h"

#include <algorithm>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

const u32_t g_noIlOffset = 0xFFFFFFFF;

// Runtime names come dotted; users read "::" between the parts. Runs of dots
// and dots at either end part nothing.
void appendDottedParts(std::string& out, const std::string& name) {
    bool first = true;
    std::string::size_type start = 0;
    while (start < name.size()) {
        std::string::size_type end = name.find('.', start);
        if (end == std::string::npos)
            end = name.size();
        if (end > start) {
            if (!first)
                out += "::";
            out.append(name, start, end - start);
            first = false;
        }
        start = end + 1;
    }
}

// The native side leaves out the match on an empty entry's start that the
// other two walks make; the difference is kept.
const korvane_line_number_entry* findNativeToManaged(LineInfoHolder::Table table, u32_t offset) {
    for (const korvane_line_number_entry& entry : table) {
        if (entry.startOffset <= offset && offset < entry.endOffset)
            return &entry;
    }
    return nullptr;
}

const korvane_line_number_entry* findByStartOrSpan(LineInfoHolder::Table table, u32_t offset) {
    for (const korvane_line_number_entry& entry : table) {
        if (offset == entry.startOffset || (offset >= entry.startOffset && offset < entry.endOffset))
            return &entry;
    }
    return nullptr;
}

Range probeAt(jit_rva_t jitRva) { return Range{jitRva, 1}; }

} // namespace

BaseMethodInfo::BaseMethodInfo() : m_methodToken(0), m_baseMethodId{0, 0}, m_baseParentId{0, 0} {}

void BaseMethodInfo::setClassName(const std::string& name) {
    if (name.empty())
        return;
    std::string joined;
    joined.reserve(name.size() + 8);
    appendDottedParts(joined, name);
    m_names.assign(m_names.qualified(), m_names.method(), joined);
}

void BaseMethodInfo::setMethodName(const std::string& name) {
    if (name.empty())
        return;
    // Built once in place: a method of every record read passes here.
    const std::string_view className = m_names.className();
    std::string qualified;
    qualified.reserve(className.size() + name.size() + 10);
    if (!className.empty())
        qualified.append(className).append("::");
    appendDottedParts(qualified, name);
    const std::string_view whole(qualified);
    m_names.assign(whole, whole.substr(0, whole.find('(')), className);
}

ISourceFile::Ptr BaseMethodInfo::getSourceFile() const {
    if (m_sourceFile.fileName().empty())
        return ISourceFile::Ptr();
    return ISourceFile::Ptr(new SourceFile(m_sourceFile));
}

JitMethod::JitMethod()
    : m_methodId(0), m_parentId(0), m_attachedToParent(false), m_lineTablesPlaced(false), m_cachedAsParent(false),
      m_methodInfo(new BaseMethodInfo()), m_startJitRva(0), m_loadTime(0) {}

skeinkit2::generic_iterator_t<ICodeRegion::Ptr> JitMethod::getRegions() const {
    typedef skeinkit2::iterutil::stl_iterator_impl_t<Region::Ptr, Regions::const_iterator> Source;
    typedef skeinkit2::generic_iterator_t<ICodeRegion::Ptr> Result;
    return Result::adopt(
        new Result::converting_iterator_impl_t<Region::Ptr>(new Source(m_codeRegions.begin(), m_codeRegions.end())));
}

korvane_error_t JitMethod::getVirtualAddress(jit_rva_t jitRva, address_t* address) const {
    for (const Region::Ptr& region : m_codeRegions) {
        if (region->startJitRva() <= jitRva && jitRva < region->startJitRva() + region->length()) {
            if (address)
                *address = jitRva - region->startJitRva() + region->startAddress();
            return meSuccess;
        }
    }
    return meNotFound;
}

korvane_error_t JitMethod::getPid(jit_rva_t jitRva, u32_t& pid) const {
    for (const Region::Ptr& region : m_codeRegions) {
        if (region->startJitRva() <= jitRva && jitRva < region->startJitRva() + region->length()) {
            pid = region->processId();
            return meSuccess;
        }
    }
    return meNotFound;
}

JitMethod::LineNumberInfo::const_iterator JitMethod::selectLineInfo(jit_rva_t jitRva) const {
    if (m_lineNumberInfo.empty() || jitRva == 0)
        return m_lineNumberInfo.begin();
    const LineNumberInfo::const_iterator found = m_lineNumberInfo.find(probeAt(jitRva));
    if (found == m_lineNumberInfo.end())
        return found;
    // Callers rely on this: the first entry now holds the tables last asked for.
    m_lineNumberInfo.copyTablesToFirst(found);
    return m_lineNumberInfo.begin();
}

korvane_error_t JitMethod::getLineNumberInfo(korvane_line_info_type type, korvane_line_number_entry* entries,
                                             u32_t* count, jit_rva_t jitRva) const {
    if (!count)
        return meInvalidArgument;
    const LineNumberInfo::const_iterator selected = selectLineInfo(jitRva);
    if (selected == m_lineNumberInfo.end())
        return meNotFound;
    if (!LineInfoHolder::isTableType(type))
        return meNotFound;
    const LineInfoHolder::Table table = selected->second.table(type);
    const u32_t size = static_cast<u32_t>(table.size());
    if (entries) {
        if (size > *count)
            return meBufferTooSmall;
        std::copy(table.begin(), table.end(), entries);
    }
    *count = size;
    return meSuccess;
}

korvane_error_t JitMethod::getSourceRange(korvane_line_number_entry* first, korvane_line_number_entry* last,
                                          jit_rva_t jitRva) const {
    if (m_lineNumberInfo.empty() || !first || !last)
        return meNotFound;
    const LineNumberInfo::const_iterator selected = selectLineInfo(jitRva);
    if (selected == m_lineNumberInfo.end())
        return meNotFound;
    const LineInfoHolder holder = selected->second;
    const LineInfoHolder::Table table =
        holder.managedToSource().empty() ? holder.nativeToSource() : holder.managedToSource();
    if (table.empty())
        return meNotFound;
    u32_t lowest = table.front().lineNumber;
    u32_t highest = lowest;
    for (const korvane_line_number_entry& entry : table) {
        lowest = std::min(lowest, entry.lineNumber);
        highest = std::max(highest, entry.lineNumber);
    }
    *first = korvane_line_number_entry{0, 0, lowest};
    *last = korvane_line_number_entry{0, 0, highest};
    return meSuccess;
}

ISourceLocation::Ptr JitMethod::getSourceLocation(jit_rva_t jitRva) const {
    const LineNumberInfo::const_iterator found = m_lineNumberInfo.find(probeAt(jitRva));
    if (found == m_lineNumberInfo.end())
        return ISourceLocation::Ptr();
    const LineInfoHolder holder = found->second;
    const Range key = found->first;
    if (jitRva < key.m_start || jitRva - key.m_start >= key.m_length)
        return ISourceLocation::Ptr();
    const u32_t offset = static_cast<u32_t>(jitRva - key.m_start);
    const korvane_line_number_entry* line = nullptr;
    if (!holder.nativeToManaged().empty() && !holder.managedToSource().empty()) {
        const korvane_line_number_entry* native = findNativeToManaged(holder.nativeToManaged(), offset);
        if (!native || native->lineNumber == g_noIlOffset)
            return ISourceLocation::Ptr();
        line = findByStartOrSpan(holder.managedToSource(), native->lineNumber);
    } else {
        line = findByStartOrSpan(holder.nativeToSource(), offset);
    }
    if (!line)
        return ISourceLocation::Ptr();
    return ISourceLocation::Ptr(new SourceLocation(line->lineNumber, m_methodInfo->m_sourceFile));
}

JitMethod::Ptr JitMethod::clone() const {
    Ptr copy(new JitMethod());
    copy->m_methodInfo = m_methodInfo;
    copy->m_startJitRva = m_startJitRva;
    copy->m_loadTime = m_loadTime;
    copy->m_methodId = m_methodId;
    copy->m_parentId = m_parentId;
    copy->m_attachedToParent = m_attachedToParent;
    copy->m_lineTablesPlaced = m_lineTablesPlaced;
    copy->m_codeRegions = m_codeRegions;
    copy->m_lineNumberInfo = m_lineNumberInfo;
    return copy;
}

bool JitMethod::addLineNumberInfo(korvane_line_info_type type, const std::vector<korvane_line_number_entry>& entries,
                                  const Range& range) {
    return addLineNumberInfo(type, LineInfoHolder::Table(entries.data(), entries.data() + entries.size()), range);
}

bool JitMethod::addLineNumberInfo(korvane_line_info_type type, LineInfoHolder::Table entries, const Range& range) {
    if (entries.empty())
        return false;
    const LineNumberInfo::const_iterator found = m_lineNumberInfo.find(range);
    if (found != m_lineNumberInfo.end()) {
        if (!LineInfoHolder::isTableType(type))
            return true;
        if (!found->second.table(type).empty()) {
            KORVANE_LOG_ERROR("Couldn't overwrite existing line number"
                              << " info for this code region of already registered method " << label(*this));
            return false;
        }
        m_lineNumberInfo.assign(found, type, entries);
        return true;
    }
    if (!m_lineNumberInfo.insert(range, type, entries)) {
        KORVANE_LOG_ERROR("Couldn't add line number info for this"
                          << " code region of already registered method " << label(*this));
        return false;
    }
    return true;
}

bool JitMethod::addLineNumberInfo(const LineNumberInfo& info) {
    static const korvane_line_info_type types[] = {ltNativeToManaged, ltManagedToSource, ltNativeToSource};
    for (const LineNumberInfo::value_type entry : info) {
        for (korvane_line_info_type type : types) {
            const LineInfoHolder::Table table = entry.second.table(type);
            if (!table.empty() && !addLineNumberInfo(type, table, entry.first))
                return false;
        }
    }
    return true;
}

void JitMethod::normalizeLineNumberInfoJitRvaRanges(jit_rva_t jitRva) { m_lineNumberInfo.shiftKeys(jitRva); }

void JitMethod::validateSymbolicInfo() const {
    KORVANE_ASSERT(m_codeRegions.size());
    if (m_codeRegions.empty())
        return;
    const Region& region = *m_codeRegions.front();
    const LineNumberInfo::const_iterator found = m_lineNumberInfo.find(probeAt(region.startJitRva()));
    if (found == m_lineNumberInfo.end())
        return;
    for (const korvane_line_number_entry& entry : found->second.nativeToSource()) {
        if (entry.endOffset > region.length()) {
            KORVANE_LOG_ERROR("Detected line number (start offset = "
                              << hex(entry.startOffset) << ", end offset = " << hex(entry.endOffset)
                              << ", src line = " << hex(entry.lineNumber)
                              << ") that does not match to code range (ip range = " << hex(region.startAddress()) << "-"
                              << hex(region.endAddress()) << ")");
            return;
        }
    }
}

void JitMethod::compareSymbolicInfoTo(const Ptr& jitMethod) const {
    KORVANE_ASSERT(jitMethod);
    if (!jitMethod)
        return;
    const std::string ownName(m_methodInfo->m_sourceFile.fileName());
    const std::string newName(jitMethod->m_methodInfo->m_sourceFile.fileName());
    if (ownName.empty()) {
        KORVANE_LOG_TRACE("Registred method has a null source file " << label(*jitMethod)
                                                                     << ". Mapping to source file is not available.");
        return;
    }
    if (newName.empty()) {
        KORVANE_LOG_TRACE("Supplied a null source file for "
                          << label(*jitMethod) << ". Line number table will be associated"
                          << " with the source file of the first code region (src name = " << ownName << ")");
        return;
    }
    if (ownName != newName) {
        KORVANE_LOG_TRACE("Supplied source file for " << label(*jitMethod)
                                                      << " is differ from source file of the first code region "
                                                         "(src name = "
                                                      << ownName << "). Map to source file will be incorrect.");
    }
}

std::ostream& operator<<(std::ostream& stream, const MethodLabel& label) {
    const JitMethod& method = label.method;
    return stream << "(method id = " << hex(method.getRawMethodId()) << ", name = " << method.getMethodName()
                  << ", load time = " << hex(method.getLoadTime()) << ")";
}

} // namespace korvane_3_10
