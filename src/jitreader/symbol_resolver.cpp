// The eager front end: reads everything at creation, then answers by jit RVA.
#include "jitreader/symbol_resolver.h"

#include "jitreader/front_end_set_up.h"
#include "jitreader/logging.h"

#include <exception>
#include <utility>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

boost::intrusive_ptr<ISymbolResolver> ISymbolResolver::create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                              boost::intrusive_ptr<ISymbolFileLocator>& locator) {
    return SymbolResolver::create(paths, locator, taAny);
}

boost::intrusive_ptr<ISymbolResolver> ISymbolResolver::create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                              boost::intrusive_ptr<ISymbolFileLocator>& locator,
                                                              korvane_arch arch) {
    return SymbolResolver::create(paths, locator, arch == arch_xa32 ? taBits32 : taBits64);
}

boost::intrusive_ptr<SymbolResolver> SymbolResolver::create(skeinkit2::generic_iterator_t<const char*>& paths,
                                                            boost::intrusive_ptr<ISymbolFileLocator>& locator,
                                                            target_arch_t arch) {
    boost::intrusive_ptr<SymbolResolver> resolver;
    const bool made = setUpFrontEnd("symbol resolver", [&] {
        resolver.reset(new SymbolResolver(locator));
        return resolver->initializeJitFiles(paths, arch);
    });
    return made ? resolver : nullptr;
}

SymbolResolver::SymbolResolver(boost::intrusive_ptr<ISymbolFileLocator>& locator)
    : m_symbolFileLocator(locator), m_jitFilesInitialized(false) {}

korvane_error_t SymbolResolver::initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths,
                                                   target_arch_t arch) {
    const korvane_error_t scanned = m_jitFilesManager.initialize(paths, arch);
    if (scanned != meSuccess)
        return scanned;
    const korvane_error_t read = m_jitFilesManager.readJitFiles(dmFull, m_jitDataManager);
    m_jitFilesInitialized = true;
    return read;
}

korvane_error_t getHostIdByName(const ISymbolResolver& resolver, const char* hostName, u32_t* hostId) {
    // Every resolver the library hands out is of this class.
    const SymbolResolver* ours = dynamic_cast<const SymbolResolver*>(&resolver);
    if (!ours || !hostName || !hostId)
        return meInvalidArgument;
    *hostId = ours->getHostIdByName(hostName);
    return meSuccess;
}

namespace {

// The resolver's answer for a sample; on success the jit RVA is stored as well.
korvane_error_t pointAt(const ISymbolResolver& resolver, u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                        jit_rva_t* jitRva, JitDataManager::JitPoint& point) {
    const SymbolResolver* ours = dynamic_cast<const SymbolResolver*>(&resolver);
    if (!ours || !jitRva)
        return meInvalidArgument;
    const korvane_error_t resolved = ours->resolveJitPoint(timestamp, address, pid, hostId, point);
    if (resolved != meSuccess)
        return resolved;
    *jitRva = point.jitRva;
    return meSuccess;
}

} // namespace

// Without the region, whose reference count would cost every query a look at the region.
korvane_error_t resolveJitPoint(const ISymbolResolver& resolver, u64_t timestamp, address_t address, u32_t pid,
                                u32_t hostId, jit_rva_t* jitRva, ISymbol::Ptr& symbol) {
    JitDataManager::JitPoint point;
    const korvane_error_t result = pointAt(resolver, timestamp, address, pid, hostId, jitRva, point);
    if (result == meSuccess)
        symbol = point.method;
    return result;
}

korvane_error_t resolveJitPoint(const ISymbolResolver& resolver, u64_t timestamp, address_t address, u32_t pid,
                                u32_t hostId, jit_rva_t* jitRva, ISymbol::Ptr& symbol, ICodeRegion::Ptr& region) {
    JitDataManager::JitPoint point;
    const korvane_error_t result = pointAt(resolver, timestamp, address, pid, hostId, jitRva, point);
    if (result == meSuccess) {
        symbol = point.method;
        region = point.region;
    }
    return result;
}

u32_t SymbolResolver::getHostIdByName(const char* hostName) const { return m_jitFilesManager.getHostID(hostName); }

korvane_error_t SymbolResolver::resolveJitPoint(u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                                                JitDataManager::JitPoint& point) const {
    // The data manager takes the address first and the time stamp second.
    const korvane_error_t resolved = m_jitDataManager.resolveJitPoint(address, timestamp, pid, hostId, point);
    if (resolved != meSuccess)
        return resolved;
    return point.method && point.jitRva != 0 ? meSuccess : meNotFound;
}

korvane_error_t SymbolResolver::getHostNameById(u32_t hostId, const char** hostName) const {
    if (!hostName)
        return meInvalidArgument;
    *hostName = m_jitFilesManager.getHostName(hostId);
    return meSuccess;
}

ISymbol::Ptr SymbolResolver::getSymbol(jit_rva_t jitRva) {
    JitMethod::Ptr method;
    if (m_jitDataManager.resolveJitPoint(jitRva, method) != meSuccess || !method)
        return ISymbol::Ptr();
    // Handed over, not copied: the count of a method far from the caches is touched once.
    return ISymbol::Ptr(std::move(method));
}

korvane_error_t SymbolResolver::getCalleeRegion(jit_rva_t callerJitRva, address_t target, jit_rva_t* calleeJitRva) {
    return m_jitDataManager.getCalleeTarget(callerJitRva, target, *calleeJitRva);
}

skeinkit2::generic_iterator_t<ISymbol::Ptr> SymbolResolver::getSymbols() { return m_jitDataManager.getJitMethods(); }

korvane_error_t SymbolResolver::translateToJitRva(u32_t jitId, address_t address, const char* jitFile,
                                                  jit_rva_t* jitRva) const {
    // Jit id 0: the caller holds a jit RVA already.
    if (jitId == 0) {
        *jitRva = address;
        return meSuccess;
    }
    if (!jitFile || *jitFile == '\0')
        return meNotFound;
    u64_t start = 0;
    u64_t end = 0;
    const korvane_error_t catalogued = m_jitFilesManager.getJitFileRange(jitFile, start, end);
    if (catalogued != meSuccess)
        return catalogued;
    u64_t result = 0;
    korvane_error_t converted = meNotFound;
    // The first conversion builds a table as large as the methods: memory may run out.
    try {
        converted = m_jitDataManager.translateToJitRva(jitId, address, start, end, result);
    } catch (const std::exception& error) {
        KORVANE_LOG_ERROR("Couldn't translate an address to a jit RVA: " << error.what());
        return meNotFound;
    }
    *jitRva = result;
    return converted;
}

} // namespace korvane_3_10
