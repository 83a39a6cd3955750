// The store of decoded records: address, time and jit RVA tables, and the point queries.
#include "jitreader/jit_data_manager.h"

#include "jitreader/jit_trace_format.h"
#include "jitreader/method_report.h"
#include "jitreader/logging.h"
#include "jitreader/retrying_lock.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <iterator>
#include <limits>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

const jit_rva_t g_noJitRva = std::numeric_limits<jit_rva_t>::max();
// Pre-jitted code carries this load time.
const u64_t g_preJittedLoadTime = 1;
// A load record with its code and line tables takes some five hundred bytes: the
// method table is sized for that many and grows where records are smaller. The
// cap keeps a sparse or lying file from reserving much.
const u64_t g_bytesPerExpectedRecord = 512;
const u64_t g_mostExpectedRecords = u64_t(1) << 20;

typedef skeinkit2::iterutil::stl_iterator_impl_t<ISymbol::Ptr, std::vector<ISymbol::Ptr>::const_iterator>
    SymbolWalk;
typedef skeinkit2::generic_iterator_t<ISymbol::Ptr>::converting_iterator_impl_t<ISymbol::Ptr> SymbolConversion;

Range rangeBetween(u64_t start, u64_t end) { return Range{start, static_cast<u32_t>(end - start)}; }

// A range whose end runs past the top of the 64-bit space can't be ordered
// against the others, so it never enters a table.
bool wrapsAround(u64_t start, u32_t length) { return start + length < start; }

bool touchesRegion(const Region& region, u64_t start, u64_t end) {
    return start <= region.endAddress() && end >= region.startAddress();
}

// Copies as much of [sourceOffset, sourceOffset + count) as both buffers hold.
void copyClamped(std::vector<unsigned char>& target, u64_t targetOffset, const IByteBuffer& source,
                 u64_t sourceOffset, u64_t count) {
    const u64_t sourceSize = source.size();
    if (targetOffset >= target.size() || sourceOffset >= sourceSize || source.data() == nullptr)
        return;
    count = std::min(count, static_cast<u64_t>(target.size()) - targetOffset);
    count = std::min(count, sourceSize - sourceOffset);
    const unsigned char* bytes = static_cast<const unsigned char*>(source.data());
    std::copy(bytes + sourceOffset, bytes + sourceOffset + count, target.begin() + targetOffset);
}

bool sameCode(const Region& a, const Region& b) {
    return a.startAddress() == b.startAddress() && a.length() == b.length() && a.loadTime() == b.loadTime();
}

korvane_error_t refuseRegion(const JitMethod& rawMethod, const Region& region, const char* reason) {
    KORVANE_LOG_ERROR("Couldn't add a region (addr=" << hex(region.startAddress()) << ", size=" << hex(region.length())
                                                     << ", methodID=" << hex(rawMethod.getRawMethodId())
                                                     << ", jitRva=" << hex(region.startJitRva()) << reason);
    return meMalformedRecord;
}

bool isPreJittedDuplicate(const JitMethod& jitMethod, const JitMethod& rawMethod) {
    if (jitMethod.getLoadTime() != g_preJittedLoadTime || rawMethod.getLoadTime() != g_preJittedLoadTime)
        return false;
    if (rawMethod.codeRegions().empty())
        return false;
    const Region& first = *rawMethod.codeRegions().front();
    for (const Region::Ptr& region : jitMethod.codeRegions())
        if (region->startAddress() == first.startAddress() && region->length() == first.length())
            return true;
    return false;
}

// Brings a further record of a known method into the registered one.
void mergeMethod(JitMethod& jitMethod, const JitMethod::Ptr& rawMethod) {
    jitMethod.compareSymbolicInfoTo(rawMethod);
    jit_rva_t lowest = rawMethod->getStartJitRva();
    if (jitMethod.getLoadTime() > rawMethod->getLoadTime())
        jitMethod.setLoadTime(rawMethod->getLoadTime());
    jitMethod.addLineNumberInfo(rawMethod->getLineNumberInfo());
    for (const Region::Ptr& region : rawMethod->codeRegions()) {
        jitMethod.addCodeRegion(region);
        lowest = std::min(lowest, region->startJitRva());
        KORVANE_LOG_INFO("Added a new code region (ip range = " << hex(region->startAddress()) << "-"
                                                                << hex(region->endAddress()) << ") in method "
                                                                << label(jitMethod));
    }
    // Only this record's regions count: the method then starts where its latest code does.
    jitMethod.setStartJitRva(lowest);
}

korvane_error_t refuseOverlap(u32_t id, u64_t start, u64_t end, const Region& region) {
    KORVANE_LOG_ERROR("Couldn't inline method (method id = " << hex(id) << ", ip range = " << hex(start) << "-"
                                                             << hex(end) << ") because it overlaps parent's ip range "
                                                             << hex(region.startAddress()) << "-"
                                                             << hex(region.endAddress()));
    return meNotFound;
}

// Under the profiler the parent's first live region that the inline touches
// must hold it; none at all leaves the inline waiting.
korvane_error_t chooseParentRegion(const JitMethod& parentMethod, const JitMethod& inlineMethod,
                                   Region::Ptr& parentRegion) {
    const Region& inlineRegion = *inlineMethod.codeRegions().front();
    const u64_t start = inlineRegion.startAddress();
    const u64_t end = inlineRegion.endAddress();
    for (const Region::Ptr& region : parentMethod.codeRegions()) {
        // Code that was overwritten takes no more inlines.
        if (region->unloadTime() != 0 || !touchesRegion(*region, start, end))
            continue;
        if (end > region->endAddress() || start < region->startAddress())
            return refuseOverlap(inlineMethod.getRawMethodId(), start, end, *region);
        parentRegion = region;
        return meSuccess;
    }
    KORVANE_LOG_TRACE("Couldn't cached inline method (method id = "
                      << hex(inlineMethod.getRawMethodId()) << ", ip range = " << hex(start) << "-" << hex(end)
                      << ") because parent method has not ip range suitable for insert."
                      << "The cached inline method is stayed awaiting for a parent.");
    return meSuccess;
}

// Without ids the inline takes its numbers from the region it lies in.
void placeInlineJitRva(Region& inlineRegion, Region::Ptr& parentRegion, InlineIndex& index) {
    const jit_rva_t inlineStart =
        parentRegion->startJitRva() + inlineRegion.startAddress() - parentRegion->startAddress();
    // Into the deepest inline that holds the start; the number stays the top-level one.
    if (Region* deepest = index.walkEnd(*parentRegion, inlineStart))
        parentRegion = deepest;
    else
        for (Region::Ptr child = parentRegion->getInlinedRegion(inlineStart); child;
             child = parentRegion->getInlinedRegion(inlineStart))
            parentRegion = child;
    const jit_rva_t inlineEnd = inlineStart + inlineRegion.length();
    const jit_rva_t parentStartJitRva = parentRegion->startJitRva();
    const jit_rva_t parentEndJitRva = parentStartJitRva + parentRegion->length();
    KORVANE_ASSERT(inlineStart >= parentStartJitRva && inlineStart < parentEndJitRva);
    KORVANE_ASSERT(inlineEnd >= parentStartJitRva && inlineEnd <= parentEndJitRva);
    inlineRegion.setStartJitRva(inlineStart);
}

// The ways a point is not found, logged alike whether the tables or their index answered.
korvane_error_t noRegionAt(u64_t address) {
    KORVANE_LOG_TRACE("Couldn't find a region for addr = " << hex(address));
    return meNotFound;
}

korvane_error_t noRegionAtTime(u64_t tsc) {
    KORVANE_LOG_TRACE("Couldn't find a region domain by tsc = " << hex(tsc));
    return meNotFound;
}

// An unload time not above the load time means the code was never unloaded.
bool wasUnloaded(u64_t loadTime, u64_t unloadTime, u64_t tsc) { return unloadTime <= tsc && unloadTime > loadTime; }

korvane_error_t unloadedBefore(const Region& found, u64_t tsc) {
    KORVANE_LOG_TRACE("The found range (" << hex(found.startAddress()) << "-" << hex(found.endAddress())
                                          << ") with life time (" << hex(found.loadTime()) << "-"
                                          << hex(found.unloadTime()) << ") was out of memory when a sample with tsc = "
                                          << hex(tsc) << " occurred");
    return meNotFound;
}

korvane_error_t noMethodFor(const Region& found) {
    KORVANE_LOG_TRACE("Couldn't find a method by code's jitrva = " << hex(found.startJitRva()));
    return meNotFound;
}

// Inserts as the map's insert does. Code is mostly laid out upwards, and jit RVAs are counted
// upwards: a key beyond the last one goes in at the end, without a descent from the root.
template <class Map>
bool insertByRange(Map& map, const Range& key, const typename Map::mapped_type& value) {
    if (!map.empty() && Range::Comparator()(std::prev(map.end())->first, key)) {
        map.emplace_hint(map.end(), key, value);
        return true;
    }
    return map.insert(std::make_pair(key, value)).second;
}

} // namespace

JitDataManager::JitDataManager()
    : m_jitRvaDomain(&m_tableMemory), m_jitRvaIndexBuilt(false), m_jitIdConverterReady(false), m_collectorType(0) {}

JitDataManager::JitMethodContainer::Ptr JitDataManager::newContainer() const {
    return boost::allocate_shared<JitMethodContainer>(std::pmr::polymorphic_allocator<JitMethodContainer>(&m_tableMemory),
                                                      &m_tableMemory);
}

JitDataManager::JitMethodContainer::Ptr JitDataManager::copyContainer(const JitMethodContainer& other) const {
    return boost::allocate_shared<JitMethodContainer>(std::pmr::polymorphic_allocator<JitMethodContainer>(&m_tableMemory),
                                                      other, &m_tableMemory);
}

skeinkit2::generic_iterator_t<ISymbol::Ptr> JitDataManager::getJitMethods() const {
    return skeinkit2::generic_iterator_t<ISymbol::Ptr>::adopt(
        new SymbolConversion(new SymbolWalk(m_jitMethodStorage.begin(), m_jitMethodStorage.end())));
}

const JitDataManager::ProcessDomain* JitDataManager::findProcessDomain(u32_t pid, u32_t hostId) const {
    const auto host = m_singleRegionDomains.find(hostId);
    if (host == m_singleRegionDomains.end())
        return nullptr;
    const auto process = host->second.find(pid);
    if (process == host->second.end())
        return nullptr;
    return &process->second;
}

const JitDataManager::SingleRegionDomain* JitDataManager::getSingleRegionDomain(u32_t pid, u32_t hostId) const {
    const ProcessDomain* process = findProcessDomain(pid, hostId);
    return process ? &process->m_domain : nullptr;
}

JitDataManager::SingleRegionDomain& JitDataManager::createSingleRegionDomain(u32_t pid, u32_t hostId) {
    // Existing entries are found without a write, so that a query of one
    // process never sees this table change under it while another is read.
    auto host = m_singleRegionDomains.find(hostId);
    if (host == m_singleRegionDomains.end())
        host = m_singleRegionDomains.insert(std::make_pair(hostId, std::map<u32_t, ProcessDomain>())).first;
    auto process = host->second.find(pid);
    if (process == host->second.end())
        process = host->second.emplace(pid, ProcessDomain(&m_tableMemory)).first;
    // The table is about to change: its index would point at pieces that go.
    if (process->second.m_index.isBuilt())
        process->second.m_index.clear();
    return process->second.m_domain;
}

// ---------------------------------------------------------------------------
// Region splitting

korvane_error_t JitDataManager::addSplittedRegion(const Range& range, const JitMethodContainer::Ptr& container,
                                                  SingleRegionDomain& splittedRegions) const {
    if (!splittedRegions.insert(std::make_pair(range, container)).second) {
        KORVANE_LOG_ERROR("Couldn't add a splitted region (ip range = " << hex(range.m_start) << "-"
                                                                       << hex(range.end()) << ")");
        return meNotFound;
    }
    KORVANE_LOG_INFO("Added a splitted region (ip range = " << hex(range.m_start) << "-" << hex(range.end()) << ")");
    return meSuccess;
}

korvane_error_t JitDataManager::modifyRegionAssosiatedData(const JitMethod::Ptr& method, const Region::Ptr& region,
                                                           JitMethodContainer::Ptr& container) const {
    const u64_t loadTime = region->loadTime();
    const u64_t start = region->startAddress();
    const u64_t end = region->endAddress();
    const jit_rva_t jitRva = region->startJitRva();

    const auto timeEntry = container->m_timeDomain.insert(std::make_pair(loadTime, region));
    if (!timeEntry.second) {
        KORVANE_LOG_ERROR("Couldn't add a splitted region (ip range = " << hex(start) << "-" << hex(end)
                                                                       << ", loadTime=" << hex(loadTime)
                                                                       << ") in the single time domain");
        return meNotFound;
    }
    KORVANE_LOG_INFO("Added a splitted region (ip range = " << hex(start) << "-" << hex(end) << ", loadTime="
                                                            << hex(loadTime) << ") in the single time domain");

    // The code loaded just before this one is gone from now on. Code that
    // follows in time needs nothing: the time map keeps the order.
    if (timeEntry.first != container->m_timeDomain.begin()) {
        const Region::Ptr& previous = std::prev(timeEntry.first)->second;
        if (previous && previous->unloadTime() == 0) {
            previous->setUnloadTime(loadTime);
            KORVANE_LOG_TRACE("Set unload time = " << hex(loadTime) << " for region (" << hex(previous->startAddress())
                                                   << "-" << hex(previous->endAddress()) << ")");
        }
    }

    if (!container->m_regionIdDomain.insert(std::make_pair(jitRva, method)).second) {
        KORVANE_LOG_ERROR("Couldn't add a splitted region (ip range = " << hex(start) << "-" << hex(end)
                                                                       << ", jitRva=" << hex(jitRva)
                                                                       << ") in the single region id domain");
        return meNotFound;
    }
    KORVANE_LOG_INFO("Added a splitted region (ip range = " << hex(start) << "-" << hex(end) << ", jitRva="
                                                            << hex(jitRva) << ") in the single region id domain");
    return meSuccess;
}

korvane_error_t JitDataManager::splitRegions(const Region::Ptr& region, const JitMethod::Ptr& method,
                                             const SingleRegionDomainItr& first, const SingleRegionDomainItr& last,
                                             SingleRegionDomain& splittedRegions) const {
    KORVANE_ASSERT_TEXT(splittedRegions.empty(), "splittedRegions.empty()");
    u64_t newStart = region->startAddress();
    const u64_t newEnd = region->endAddress();
    KORVANE_LOG_INFO("Code region (ip range = " << hex(newStart) << "-" << hex(newEnd) << ")");

    for (SingleRegionDomainItr key = first; key != last;) {
        const u64_t keyStart = key->first.m_start;
        const u64_t keyEnd = key->first.end();
        JitMethodContainer::Ptr old = key->second;
        KORVANE_LOG_INFO("Overlapped code region (ip range = " << hex(keyStart) << "-" << hex(keyEnd) << ")");

        if (splitKey(region, method, newStart, newEnd, key->first, old, splittedRegions) != meSuccess)
            return meNotFound;

        ++key;
        if (key == last)
            break;
        // The piece beyond this key is made again, from the next key's view.
        if (splittedRegions.empty())
            return meNotFound;
        splittedRegions.erase(std::prev(splittedRegions.end()));
        newStart = keyEnd;
    }
    return meSuccess;
}

korvane_error_t JitDataManager::addFreshPiece(const Range& range, const Region::Ptr& region,
                                              const JitMethod::Ptr& method, SingleRegionDomain& splittedRegions) const {
    JitMethodContainer::Ptr container = newContainer();
    const korvane_error_t result = modifyRegionAssosiatedData(method, region, container);
    if (result != meSuccess)
        return result;
    return addSplittedRegion(range, container, splittedRegions);
}

korvane_error_t JitDataManager::splitKey(const Region::Ptr& region, const JitMethod::Ptr& method, u64_t newStart,
                                         u64_t newEnd, const Range& key, JitMethodContainer::Ptr& old,
                                         SingleRegionDomain& splittedRegions) const {
    const u64_t keyStart = key.m_start;
    const u64_t keyEnd = key.end();
    // Untouched history is copied before the key's own container takes the
    // new region, so that the copies don't get it.
    if (newStart > keyStart &&
        addSplittedRegion(rangeBetween(keyStart, newStart), copyContainer(*old),
                          splittedRegions) != meSuccess)
        return meNotFound;
    if (newStart < keyStart &&
        addFreshPiece(rangeBetween(newStart, keyStart), region, method, splittedRegions) != meSuccess)
        return meNotFound;
    if (newEnd < keyEnd &&
        addSplittedRegion(rangeBetween(newEnd, keyEnd), copyContainer(*old),
                          splittedRegions) != meSuccess)
        return meNotFound;
    if (newEnd > keyEnd && addFreshPiece(rangeBetween(keyEnd, newEnd), region, method, splittedRegions) != meSuccess)
        return meNotFound;
    if (modifyRegionAssosiatedData(method, region, old) != meSuccess)
        return meNotFound;
    return addSplittedRegion(rangeBetween(std::max(newStart, keyStart), std::min(newEnd, keyEnd)), old,
                             splittedRegions);
}

// ---------------------------------------------------------------------------
// Method load processing

korvane_error_t JitDataManager::processMethodLoadRecord(u32_t pid, u32_t hostId, JitMethod::Ptr& rawMethod) {
    KORVANE_TRACE_SCOPE();
    KORVANE_ASSERT(rawMethod->regionCount());

    JitMethod::Ptr jitMethod = *m_jitMethods.insert(rawMethod->getMethodId(), rawMethod).first;
    const bool repeated = jitMethod != rawMethod;
    if (!repeated) {
        m_jitMethodStorage.push_back(rawMethod);
    } else {
        KORVANE_LOG_TRACE("Detected already cached code region with the same method id " << label(*jitMethod));
        if (isPlacedAlready(*jitMethod, *rawMethod)) {
            KORVANE_LOG_TRACE("Skipped a record that was read before " << label(*rawMethod));
            return meSuccess;
        }
        if (isPreJittedDuplicate(*jitMethod, *rawMethod)) {
            // The run of blanks is kept on purpose: the message reads as it always has, for those who compare logs.
            KORVANE_LOG_WARN("Couldn't add a region (methodID="
                             << hex(rawMethod->getRawMethodId())
                             << ") because there are two pre-jitted code ranges                         located on "
                                "the same address space for the same method");
            return meSuccess;
        }
        mergeMethod(*jitMethod, rawMethod);
    }
    m_unfinalized.emplace_back(rawMethod->getMethodId(), jitMethod);

    for (const Region::Ptr& region : rawMethod->codeRegions())
        region->setOwner(jitMethod.get());
    for (const Region::Ptr& region : rawMethod->codeRegions()) {
        const korvane_error_t result = placeRegion(pid, hostId, rawMethod, jitMethod, region);
        if (result != meSuccess)
            return result;
    }

    if (getCollectorType() == ctJitProfiler) {
        addCachedInlineMethods(jitMethod);
        if (!repeated)
            cacheParentMethod(jitMethod);
    }
    return meSuccess;
}

bool JitDataManager::isPlacedAlready(const JitMethod& jitMethod, const JitMethod& rawMethod) const {
    // Numbers are handed out once per byte of a file, so the same numbers for
    // the same code mean that the file is being read again.
    if (rawMethod.codeRegions().empty())
        return false;
    for (const Region::Ptr& region : rawMethod.codeRegions()) {
        const auto placed = m_jitRvaDomain.find(Range{region->startJitRva(), region->length()});
        if (placed == m_jitRvaDomain.end() || placed->second.m_method.get() != &jitMethod)
            return false;
        const Region& known = *placed->second.m_region;
        if (known.startJitRva() != region->startJitRva() || !sameCode(known, *region))
            return false;
    }
    return true;
}

bool JitDataManager::isCachedAlready(const JitMethod& rawMethod) const {
    // Only inline records can be the same record: they alone have a parent id.
    return rawMethod.getRawParentId() != 0 && m_inlineIndex.isCached(rawMethod);
}

korvane_error_t JitDataManager::placeRegion(u32_t pid, u32_t hostId, const JitMethod::Ptr& rawMethod,
                                            const JitMethod::Ptr& jitMethod, const Region::Ptr& region) {
    const jit_rva_t jitRva = region->startJitRva();
    const u32_t length = region->length();
    const u64_t start = region->startAddress();
    const u64_t loadTime = region->loadTime();

    // An empty region covers no byte and no number; it would only confuse the ordering.
    if (length == 0)
        return meSuccess;
    if (wrapsAround(start, length) || wrapsAround(jitRva, length))
        return refuseRegion(*rawMethod, *region, ") because its range runs past the end of the address space.");

    const RegionInfo info = {region, jitMethod};
    if (!insertByRange(m_jitRvaDomain, Range{jitRva, length}, info))
        return refuseRegion(*rawMethod, *region, ") because jit rva ranges are overlapped.");
    if (m_jitRvaIndexBuilt) {
        m_jitRvaIndexBuilt = false;
        m_jitRvaIndex.clear();
    }

    JitMethodContainer::Ptr container = newContainer();
    if (!container->m_timeDomain.insert(std::make_pair(loadTime, region)).second)
        return refuseRegion(*rawMethod, *region, ") because load time values are overlapped.");
    if (!container->m_regionIdDomain.insert(std::make_pair(jitRva, jitMethod)).second)
        return refuseRegion(*rawMethod, *region, ") because jit rva values are overlapped.");

    SingleRegionDomain& domain = createSingleRegionDomain(pid, hostId);
    const Range range = {start, length};
    if (insertByRange(domain, range, container))
        return meSuccess;

    const SingleRegionDomainItr first = domain.lower_bound(range);
    const SingleRegionDomainItr last = domain.upper_bound(range);
    SingleRegionDomain splittedRegions;
    if (splitRegions(region, jitMethod, first, last, splittedRegions) != meSuccess)
        return meMalformedRecord;
    KORVANE_ASSERT(!splittedRegions.empty());

    if (KORVANE_INFO_ENABLED())
        reportUnloadedMethods(pid, hostId, *rawMethod, first, last);

    domain.erase(first, last);
    for (const auto& piece : splittedRegions) {
        const bool inserted = domain.insert(piece).second;
        KORVANE_ASSERT(inserted);
    }
    return meSuccess;
}

void JitDataManager::reportUnloadedMethods(u32_t pid, u32_t hostId, const JitMethod& rawMethod,
                                           SingleRegionDomainItr first, SingleRegionDomainItr last) const {
    MethodMap oldMethods;
    for (SingleRegionDomainItr key = first; key != last; ++key) {
        Region::Ptr region;
        JitMethod::Ptr method;
        const korvane_error_t ret = findRegion(key->first.m_start, rawMethod.getLoadTime(), pid, hostId, region,
                                               method);
        KORVANE_ASSERT(ret == meSuccess);
        if (!method)
            continue;
        KORVANE_LOG_INFO("Unloaded code region (ip range = " << hex(key->first.m_start) << "-"
                                                             << hex(key->first.end()) << ") from method "
                                                             << label(*method));
        oldMethods.insert(std::make_pair(method->getMethodId(), method));
    }
    for (const auto& entry : oldMethods)
        KORVANE_LOG_INFO("Updated method's state " << label(*entry.second) << dumpRegions(*entry.second));
}

// ---------------------------------------------------------------------------
// Inline processing and caches

korvane_error_t JitDataManager::processMethodInlineLoadRecord(u32_t, u32_t, JitMethod::Ptr& rawMethod) {
    KORVANE_TRACE_SCOPE();
    KORVANE_ASSERT(rawMethod->regionCount() == 1);
    const bool jitProfiler = getCollectorType() == ctJitProfiler;
    const u32_t rawMethodId = rawMethod->getRawMethodId();
    const u32_t rawParentId = rawMethod->getRawParentId();
    if (jitProfiler) {
        if (rawMethodId == 0) {
            KORVANE_LOG_ERROR("Couldn't inline method (method id = " << hex(0) << ") because method id is invalid.");
            return meNotFound;
        }
        if (rawParentId == 0) {
            KORVANE_LOG_ERROR("Couldn't inline method (method id = " << hex(rawMethodId) << ") because its parent id = "
                                                                     << hex(0) << " is invalid.");
            return meNotFound;
        }
        KORVANE_ASSERT(!rawMethod->getMethodId().isEmpty());
        KORVANE_ASSERT(!rawMethod->getParentId().isEmpty());
    } else {
        KORVANE_ASSERT(rawMethodId == 0);
        KORVANE_ASSERT(rawParentId == 0);
    }
    if (rawMethod->codeRegions().empty())
        return meNotFound;

    const Region::Ptr& rawRegion = rawMethod->codeRegions().front();
    KORVANE_ASSERT(rawRegion->startAddress());
    KORVANE_ASSERT(rawRegion->length());
    KORVANE_ASSERT(rawRegion->startJitRva() == 0);
    KORVANE_ASSERT(rawRegion->processId());
    KORVANE_ASSERT(rawRegion->hostId());
    KORVANE_ASSERT(rawRegion->loadTime());

    JitMethod::Ptr parentMethod;
    Region::Ptr parentRegion;
    if (jitProfiler && isCachedAlready(*rawMethod)) {
        KORVANE_LOG_TRACE("Skipped an inline record that was read before " << label(*rawMethod));
        return meSuccess;
    }
    if (jitProfiler) {
        // Looked up before the record enters the caches, so that it can't find itself.
        const bool parentFound = findParentMethod(rawMethod->getParentId(), parentMethod) == meSuccess ||
                                 findInlineMethod(rawMethod->getParentId(), parentMethod) == meSuccess;
        if (cacheInlineMethod(rawMethod) != meSuccess)
            return meSuccess;
        cacheParentMethod(rawMethod);
        if (!parentFound) {
            KORVANE_LOG_TRACE("Couldn't inline method (method id = "
                              << hex(rawMethodId) << ") because parent method is not found. Inline method is cached.");
            return meSuccess;
        }
    } else if (findRegion(rawRegion->startAddress(), rawRegion->loadTime(), rawRegion->processId(),
                          rawRegion->hostId(), parentRegion, parentMethod) != meSuccess) {
        KORVANE_LOG_ERROR("Couldn't inline method (method id = " << hex(rawMethodId)
                                                                 << ") because parent method is not found.");
        return meNotFound;
    } else if (m_inlineIndex.holdsSameRecord(*parentRegion, *rawMethod)) {
        KORVANE_LOG_TRACE("Skipped an inline record that was read before " << label(*rawMethod));
        return meSuccess;
    }

    KORVANE_ASSERT(parentMethod);
    if (!parentMethod)
        return meNotFound;
    KORVANE_LOG_INFO("Found parent method " << label(*parentMethod));
    return addInlineMethod(parentMethod, parentRegion, rawMethod);
}

korvane_error_t JitDataManager::addInlineMethod(JitMethod::Ptr& parentMethod, Region::Ptr& parentRegion,
                                                const JitMethod::Ptr& inlineMethod) {
    KORVANE_ASSERT(inlineMethod->regionCount() == 1);
    if (inlineMethod->codeRegions().empty())
        return meNotFound;
    const Region::Ptr& inlineRegion = inlineMethod->codeRegions().front();
    const u64_t start = inlineRegion->startAddress();
    const u64_t end = inlineRegion->endAddress();
    const u32_t id = inlineMethod->getRawMethodId();
    const bool jitProfiler = getCollectorType() == ctJitProfiler;

    if (jitProfiler) {
        KORVANE_ASSERT(!parentRegion);
        const korvane_error_t result = chooseParentRegion(*parentMethod, *inlineMethod, parentRegion);
        if (result != meSuccess || !parentRegion)
            return result;
    } else {
        KORVANE_ASSERT(parentRegion);
        if (!parentRegion)
            return meNotFound;
        if (end > parentRegion->endAddress() || start < parentRegion->startAddress())
            return refuseOverlap(id, start, end, *parentRegion);
    }

    // A region that already holds the parent can't go below it: the tree would close into a ring.
    if (m_inlineIndex.liesIn(*parentRegion, *inlineRegion)) {
        KORVANE_LOG_ERROR("Couldn't inline method (method id = " << hex(id) << ", ip range = " << hex(start) << "-"
                                                                 << hex(end)
                                                                 << ") because the parent's code region lies in it");
        return meNotFound;
    }

    if (const Region* child = m_inlineIndex.overlappedChild(*parentRegion, start, end)) {
        KORVANE_LOG_ERROR("Couldn't inline method (method id = "
                          << hex(id) << ", ip range = " << hex(start) << "-" << hex(end)
                          << ") because it intersects another parent's inline with range "
                          << hex(child->startAddress()) << "-" << hex(child->endAddress()));
        return meNotFound;
    }

    const Region::Ptr foundRegion = parentRegion;
    if (jitProfiler)
        KORVANE_ASSERT(inlineMethod->getStartJitRva() == 0);
    else
        placeInlineJitRva(*inlineRegion, parentRegion, m_inlineIndex);

    parentRegion->addChildRegion(inlineRegion, inlineMethod);
    inlineMethod->setAttachedToParent(true);
    m_inlineIndex.attached(*parentRegion, *inlineRegion, *inlineMethod, jitProfiler ? nullptr : foundRegion.get());
    // The method at the top of the tree, if it has one yet, is finalised again.
    if (JitMethod* owner = m_inlineIndex.topOf(*parentRegion)->owner())
        m_unfinalized.emplace_back(owner->getMethodId(), JitMethod::Ptr(owner));

    KORVANE_LOG_INFO("Added inline method (method id = "
                     << hex(id) << ", ip range = " << hex(start) << "-" << hex(end)
                     << ") into parent's code region (method id = " << hex(parentMethod->getRawMethodId())
                     << ", ip range = " << hex(foundRegion->startAddress()) << "-" << hex(foundRegion->endAddress())
                     << ")");
    KORVANE_LOG_INFO("Updated method's state " << label(*parentMethod) << dumpRegions(*parentMethod));
    return meSuccess;
}

korvane_error_t JitDataManager::addCachedInlineMethods(JitMethod::Ptr& parentMethod) {
    KORVANE_ASSERT(parentMethod);
    KORVANE_ASSERT(getCollectorType() == ctJitProfiler);
    const auto waiting = m_cachedParentMethods.find(parentMethod->getMethodId());
    if (waiting == m_cachedParentMethods.end()) {
        if (KORVANE_TRACE_ENABLED() && !isCachedParent(parentMethod->getMethodId()))
            KORVANE_LOG_TRACE("Couldn't find any cached inline method for parent id = "
                              << hex(parentMethod->getRawMethodId()));
        return meSuccess;
    }
    for (const JitMethod::Ptr& inlineMethod : waiting->second) {
        if (inlineMethod->attachedToParent())
            continue;
        KORVANE_LOG_INFO("Found cached inline method " << label(*inlineMethod) << " for parent id = "
                                                       << hex(parentMethod->getRawMethodId()));
        KORVANE_ASSERT(inlineMethod->regionCount() == 1);
        // A failure is logged where it happens; the inline goes on waiting.
        Region::Ptr noRegion;
        addInlineMethod(parentMethod, noRegion, inlineMethod);
    }
    return meSuccess;
}

korvane_error_t JitDataManager::cacheInlineMethod(JitMethod::Ptr& inlineMethod) {
    KORVANE_ASSERT(inlineMethod);
    KORVANE_ASSERT(getCollectorType() == ctJitProfiler);
    if (!m_inlineMethods.insert(inlineMethod->getMethodId(), inlineMethod).second)
        KORVANE_LOG_TRACE("Already cached inline method (method id = " << hex(inlineMethod->getRawMethodId()) << ")");
    // Inlines waiting for this one as their parent get their chance now.
    if (m_cachedParentMethods.find(inlineMethod->getMethodId()) != m_cachedParentMethods.end() ||
        isCachedParent(inlineMethod->getMethodId()))
        return addCachedInlineMethods(inlineMethod);
    return meSuccess;
}

korvane_error_t JitDataManager::cacheParentMethod(JitMethod::Ptr& jitMethod) {
    KORVANE_ASSERT(jitMethod);
    KORVANE_ASSERT(getCollectorType() == ctJitProfiler);
    KORVANE_ASSERT(jitMethod->getRawMethodId());
    if (jitMethod->getRawParentId() != 0) {
        m_cachedParentMethods[jitMethod->getParentId()].push_back(jitMethod);
        m_inlineIndex.cached(*jitMethod);
        KORVANE_LOG_TRACE("Cached 'inline as a parent' method (method id = " << hex(jitMethod->getRawMethodId())
                                                                              << ")");
    } else {
        // Its own id would only list it among the inlines that wait for it: a mark on it does.
        jitMethod->setCachedAsParent();
        KORVANE_LOG_TRACE("Cached parent method (method id = " << hex(jitMethod->getRawMethodId()) << ")");
    }
    return meSuccess;
}

bool JitDataManager::isCachedParent(const BaseMethodId& id) const {
    const JitMethod::Ptr* found = m_jitMethods.find(id);
    return found && (*found)->cachedAsParent();
}

korvane_error_t JitDataManager::findParentMethod(const BaseMethodId& parentId, JitMethod::Ptr& method) const {
    KORVANE_ASSERT(getCollectorType() == ctJitProfiler);
    KORVANE_ASSERT(!parentId.isEmpty());
    const JitMethod::Ptr* found = m_jitMethods.find(parentId);
    if (!found)
        return meNotFound;
    const JitMethod::Ptr& jitMethod = *found;
    KORVANE_ASSERT(jitMethod->regionCount());
    method = jitMethod;
    return meSuccess;
}

korvane_error_t JitDataManager::findInlineMethod(const BaseMethodId& parentId, JitMethod::Ptr& method) const {
    KORVANE_ASSERT(getCollectorType() == ctJitProfiler);
    const JitMethod::Ptr* found = m_inlineMethods.find(parentId);
    if (!found)
        return meNotFound;
    method = *found;
    return meSuccess;
}

// ---------------------------------------------------------------------------
// Update processing

korvane_error_t JitDataManager::processMethodUpdateRecord(u32_t pid, u32_t hostId, JitMethod::Ptr& rawMethod) {
    KORVANE_TRACE_SCOPE();
    const u32_t id = rawMethod->getRawMethodId();
    if (getCollectorType() != ctJitProfiler) {
        // The run of blanks is kept on purpose: the message reads as it always has, for those who compare logs.
        KORVANE_LOG_ERROR("Couldn't accept update because jit file must be                                      "
                          "collected by old version of Zelphy JIT agent");
        return meNotFound;
    }
    if (id == 0) {
        KORVANE_LOG_ERROR("Couldn't accept update because method ID is 0");
        return meNotFound;
    }
    if (rawMethod->regionCount() != 1) {
        KORVANE_LOG_ERROR("Couldn't accept update (method id = " << hex(id) << ") because it has multiple code ranges");
        return meNotFound;
    }
    const Region& update = *rawMethod->codeRegions().front();
    Region::Ptr region;
    JitMethod::Ptr method;
    if (findRegion(update.startAddress(), update.loadTime(), pid, hostId, region, method) != meSuccess) {
        KORVANE_LOG_ERROR("Couldn't accept update (method id = " << hex(id)
                                                                 << ") because a range to be updated is not found");
        return meNotFound;
    }
    if (method->getRawMethodId() != id) {
        KORVANE_LOG_ERROR("Couldn't accept update (method id = "
                          << hex(id) << ") because a range to be updated has different method id = "
                          << hex(method->getRawMethodId()));
        return meNotFound;
    }
    // Code that came without bytes can't be patched, nor can it patch.
    if (!update.content() || !region->content()) {
        KORVANE_LOG_ERROR("Couldn't accept update (method id = " << hex(id) << ") because its code bytes are missing");
        return meNotFound;
    }

    const u64_t updateStart = update.startAddress();
    const u64_t updateEnd = update.endAddress();
    const u64_t regionStart = region->startAddress();
    const u64_t regionEnd = region->endAddress();
    if (updateEnd > regionEnd || updateStart < regionStart) {
        KORVANE_LOG_ERROR("Couldn't accept update (method id = "
                          << hex(id) << ", ip range = " << hex(updateStart) << "-" << hex(updateEnd)
                          << ") because it overlaps parent's ip range " << hex(regionStart) << "-" << hex(regionEnd));
        return meNotFound;
    }

    IByteBuffer& target = *region->content();
    std::vector<unsigned char> image(target.size(), 0);
    const IByteBuffer& bytes = *update.content();
    const u32_t head = static_cast<u32_t>(updateStart - regionStart);
    const u32_t tail = static_cast<u32_t>(updateEnd - regionStart);
    if (updateStart == regionStart && updateEnd == regionEnd) {
        copyClamped(image, 0, bytes, 0, bytes.size());
    } else {
        copyClamped(image, 0, target, 0, head);
        copyClamped(image, head, bytes, 0, tail - head);
        copyClamped(image, tail, target, tail, static_cast<u32_t>(regionEnd - updateEnd));
    }
    target.assign(image.data(), static_cast<u32_t>(image.size()));

    // Printed as end + start on purpose: the message reads as it always has, for those who compare logs.
    KORVANE_LOG_INFO("Updated code region (ip range = " << hex(regionStart) << "-" << hex(regionEnd + regionStart)
                                                        << ") from method " << label(*method));
    return meSuccess;
}

// ---------------------------------------------------------------------------
// Finalisation

void JitDataManager::finalize() {
    KORVANE_TRACE_SCOPE();
    // Only methods whose regions or inlines changed since the last time: the
    // others are in place already, and a reading of many files must not walk
    // every method after each of them. They go in order of their ids, each once.
    const BaseMethodId::Comparator before;
    std::sort(m_unfinalized.begin(), m_unfinalized.end(),
              [&](const Unfinalized& a, const Unfinalized& b) { return before(a.first, b.first); });
    const auto end = std::unique(m_unfinalized.begin(), m_unfinalized.end(),
                                 [](const Unfinalized& a, const Unfinalized& b) { return a.first == b.first; });
    for (auto entry = m_unfinalized.begin(); entry != end; ++entry) {
        const JitMethod& method = *entry->second;
        for (const Region::Ptr& region : method.codeRegions()) {
            const jit_rva_t jitRva = region->startJitRva();
            const u64_t start = region->startAddress();
            KORVANE_ASSERT(jitRva);
            KORVANE_ASSERT_TEXT(start, "startAddr");
            KORVANE_LOG_TRACE("Normalize method's (method id = " << hex(method.getRawMethodId()) << ", startJitRva = "
                                                                 << hex(jitRva) << ") code region " << hex(start)
                                                                 << "-" << hex(region->endAddress()));
            if (region->normalizeInlineJitRvaRanges(jitRva, start) != meSuccess)
                KORVANE_LOG_ERROR("Couldn't normalize method's (method id = "
                                  << hex(method.getRawMethodId()) << ", startJitRva = " << hex(jitRva)
                                  << ") code region " << hex(start) << "-" << hex(region->endAddress())
                                  << ". The inlines can't be resolved for this method.");
        }
    }
    m_unfinalized.clear();
}

// ---------------------------------------------------------------------------
// Indexes for the point queries

void JitDataManager::indexProcess(u32_t pid, u32_t hostId) {
    const auto host = m_singleRegionDomains.find(hostId);
    if (host == m_singleRegionDomains.end())
        return;
    const auto process = host->second.find(pid);
    if (process != host->second.end())
        buildAddressIndex(process->second);
}

void JitDataManager::expectFileBytes(u64_t bytes) {
    const u64_t records = std::min(bytes / g_bytesPerExpectedRecord, g_mostExpectedRecords);
    const std::size_t wanted = m_jitMethods.size() + static_cast<std::size_t>(records);
    // Processes read one at a time ask for a little more each time: the table
    // grows at least twofold then, so that it is not rehashed for every process.
    if (wanted > m_jitMethods.capacity())
        m_jitMethods.reserve(std::max(wanted, 2 * m_jitMethods.size()));
}

void JitDataManager::sealAfterReading() {
    for (auto& host : m_singleRegionDomains)
        for (auto& process : host.second)
            buildAddressIndex(process.second);
    m_jitRvaIndex.clear();
    m_jitRvaIndex.reserve(m_jitRvaDomain.size());
    for (const auto& entry : m_jitRvaDomain)
        m_jitRvaIndex.append(entry.first, JitRvaHit{entry.second.m_method.get(), entry.second.m_region.get()});
    m_jitRvaIndexBuilt = true;
    // The indexes answer every query from here on, and the methods in the
    // storage own every region the tables held: a quarter of the memory goes.
    JitRvaDomain(&m_tableMemory).swap(m_jitRvaDomain);
    for (auto& host : m_singleRegionDomains)
        for (auto& process : host.second)
            SingleRegionDomain(&m_tableMemory).swap(process.second.m_domain);
    m_tableMemory.release();
    // Inlines still waiting here have no parent to come; the queries never see them.
    m_inlineIndex = InlineIndex();
    std::vector<Unfinalized>().swap(m_unfinalized);
    m_inlineMethods.clear();
    MethodMultiMap().swap(m_cachedParentMethods);
}

void JitDataManager::buildAddressIndex(ProcessDomain& process) {
    AddressIndex& index = process.m_index;
    index.clear();
    index.reservePieces(process.m_domain.size());
    for (const auto& key : process.m_domain) {
        index.addPiece(key.first);
        const JitMethodContainer& container = *key.second;
        for (const auto& entry : container.m_timeDomain) {
            JitMethod* method = nullptr;
            if (entry.second) {
                const auto owner = container.m_regionIdDomain.find(entry.second->startJitRva());
                if (owner != container.m_regionIdDomain.end())
                    method = owner->second.get();
            }
            index.addEntry(entry.first, entry.second.get(), method);
        }
    }
    index.markBuilt();
}

// ---------------------------------------------------------------------------
// Point resolution

korvane_error_t JitDataManager::findRegion(u64_t address, u64_t tsc, u32_t pid, u32_t hostId, Region::Ptr& region,
                                           JitMethod::Ptr& method) const {
    region.reset();
    method.reset();
    const ProcessDomain* process = findProcessDomain(pid, hostId);
    if (!process) {
        KORVANE_LOG_TRACE("Couldn't find a region domain for pid = " << hex(pid));
        return meNotFound;
    }
    if (process->m_index.isBuilt()) {
        const AddressIndex::Entry* entry = nullptr;
        const korvane_error_t result = findIndexedRegion(process->m_index, address, tsc, entry);
        if (result != meSuccess)
            return result;
        region = entry->region;
        method = entry->method;
        return meSuccess;
    }
    const SingleRegionDomain& domain = process->m_domain;
    const auto key = domain.lower_bound(Range{address, 1});
    if (key == domain.end() || address < key->first.m_start)
        return noRegionAt(address);

    const JitMethodContainer& container = *key->second;
    auto current = container.m_timeDomain.upper_bound(tsc);
    if (current == container.m_timeDomain.begin() || !std::prev(current)->second)
        return noRegionAtTime(tsc);
    const Region::Ptr& found = std::prev(current)->second;
    if (wasUnloaded(found->loadTime(), found->unloadTime(), tsc))
        return unloadedBefore(*found, tsc);

    const auto owner = container.m_regionIdDomain.find(found->startJitRva());
    if (owner == container.m_regionIdDomain.end())
        return noMethodFor(*found);
    region = found;
    method = owner->second;
    return meSuccess;
}

const AddressIndex* JitDataManager::builtIndex(u32_t pid, u32_t hostId) const {
    const ProcessDomain* process = findProcessDomain(pid, hostId);
    return process && process->m_index.isBuilt() ? &process->m_index : nullptr;
}

// The same search as through the tables, over their flat copy.
korvane_error_t JitDataManager::findIndexedRegion(const AddressIndex& index, u64_t address, u64_t tsc,
                                                  const AddressIndex::Entry*& found) const {
    const AddressIndex::Piece* piece = index.findPiece(address);
    if (!piece)
        return noRegionAt(address);
    const AddressIndex::Entry* entry = index.currentEntry(*piece, tsc);
    if (!entry || !entry->region)
        return noRegionAtTime(tsc);
    if (wasUnloaded(entry->loadTime, entry->unloadTime, tsc))
        return unloadedBefore(*entry->region, tsc);
    if (!entry->method)
        return noMethodFor(*entry->region);
    found = entry;
    return meSuccess;
}

korvane_error_t JitDataManager::resolveJitPoint(u64_t vaddr, u64_t timestamp, u32_t pid, u32_t hostId,
                                                JitMethod::Ptr& method, jit_rva_t& jitRva) const {
    JitPoint point;
    const korvane_error_t result = resolveJitPoint(vaddr, timestamp, pid, hostId, point);
    method = point.method;
    if (result == meSuccess)
        jitRva = point.jitRva;
    return result;
}

korvane_error_t JitDataManager::resolveJitPoint(u64_t vaddr, u64_t timestamp, u32_t pid, u32_t hostId,
                                                JitPoint& point) const {
    KORVANE_LOG_INFO("RESOLVE JIT POINT: vaddr = " << hex(vaddr) << ", timestamp = " << hex(timestamp)
                                                   << ", pid = " << hex(pid) << ", hostId = " << hex(hostId));
    // A read process answers from its index, without touching the region or the method.
    korvane_error_t found = meNotFound;
    jit_rva_t jitRvaOffset = 0;
    if (const AddressIndex* index = builtIndex(pid, hostId)) {
        const AddressIndex::Entry* entry = nullptr;
        found = findIndexedRegion(*index, vaddr, timestamp, entry);
        if (found == meSuccess) {
            point.method = entry->method;
            point.module = entry->module;
            point.region = entry->region;
            jitRvaOffset = entry->jitRvaOffset;
        }
    } else {
        Region::Ptr region;
        JitMethod::Ptr method;
        found = findRegion(vaddr, timestamp, pid, hostId, region, method);
        if (found == meSuccess) {
            point.method = method.get();
            point.module = method->methodInfo()->m_module.get();
            point.region = region.get();
            jitRvaOffset = region->startJitRva() - region->startAddress();
        }
    }
    if (found != meSuccess) {
        KORVANE_LOG_TRACE("Couldn't match jit point (vaddr = " << hex(vaddr) << ", timestamp = " << hex(timestamp)
                                                               << ", pid = " << hex(pid)
                                                               << ") to any known ip address range.");
        return meNotFound;
    }
    // Numbered from the top-level region, so that a split piece keeps the region's own numbers.
    point.jitRva = vaddr + jitRvaOffset;
    KORVANE_LOG_INFO("Resolved jit point (vaddr = " << hex(vaddr) << ", timestamp = " << hex(timestamp)
                                                    << ") to jit rva = " << hex(point.jitRva) << " of method "
                                                    << label(*point.method));
    return meSuccess;
}

korvane_error_t JitDataManager::resolveJitPoint(jit_rva_t jitRva, JitMethod::Ptr& method) const {
    KORVANE_LOG_INFO("RESOLVE JIT POINT: jit rva = " << hex(jitRva));
    if (jitRva == g_noJitRva) {
        KORVANE_LOG_TRACE("Couldn't resolve jit rva = " << hex(jitRva) << " because it is invalid.");
        return meNotFound;
    }
    JitMethod* found = findJitRva(jitRva).method;
    if (!found) {
        KORVANE_LOG_TRACE("Couldn't resolve jit rva = " << hex(jitRva) << " because it is out of the jit rva domain.");
        return meNotFound;
    }
    method = found;
    KORVANE_LOG_INFO("Resolved jit rva = " << hex(jitRva) << " to method " << label(*method));
    return meSuccess;
}

korvane_error_t JitDataManager::getCalleeTarget(u64_t callerJitRva, u64_t targetAddress,
                                                u64_t& calleeJitRva) const {
    if (callerJitRva == g_noJitRva)
        return meNotFound;
    const Region* caller = findJitRva(callerJitRva).region;
    if (!caller)
        return meNotFound;
    const Region& region = *caller;
    JitMethod::Ptr method;
    return resolveJitPoint(targetAddress, region.loadTime(), region.processId(), region.hostId(), method,
                           calleeJitRva);
}

JitDataManager::JitRvaHit JitDataManager::findJitRva(jit_rva_t jitRva) const {
    if (m_jitRvaIndexBuilt) {
        const JitRvaHit* found = m_jitRvaIndex.find(jitRva);
        return found ? *found : JitRvaHit();
    }
    const auto found = m_jitRvaDomain.find(Range{jitRva, 1});
    if (found == m_jitRvaDomain.end())
        return JitRvaHit();
    return JitRvaHit{found->second.m_method.get(), found->second.m_region.get()};
}

korvane_error_t JitDataManager::translateToJitRva(u32_t jitId, u64_t address, u64_t start, u64_t end,
                                                  u64_t& result) const {
    if (m_jitIdConverterReady.load(std::memory_order_acquire))
        return m_jitIdConverter.convert(jitId, address, start, end, result);

    // Until a filled snapshot is published, conversions stay under the lock:
    // an empty snapshot may be filled again by the next caller.
    RetryingLock lock(m_jitIdConverterMutex);
    if (!m_jitIdConverterReady.load(std::memory_order_relaxed))
        fillJitIdConverter();
    const korvane_error_t converted = m_jitIdConverter.convert(jitId, address, start, end, result);
    lock.unlock();
    return converted;
}

void JitDataManager::fillJitIdConverter() const {
    const std::size_t count = m_jitRvaIndexBuilt ? m_jitRvaIndex.size() : m_jitRvaDomain.size();
    std::vector<u64_t> jitRvas;
    std::vector<u32_t> lengths;
    std::vector<u64_t> addresses;
    jitRvas.reserve(count);
    lengths.reserve(count);
    addresses.reserve(count);
    const auto note = [&](const Region& region) {
        jitRvas.push_back(region.startJitRva());
        lengths.push_back(region.length());
        addresses.push_back(region.startAddress());
    };
    // Once everything is read only the index holds the regions, in the table's order.
    if (m_jitRvaIndexBuilt)
        m_jitRvaIndex.forEach([&](const JitRvaHit& hit) { note(*hit.region); });
    else
        for (const auto& entry : m_jitRvaDomain)
            note(*entry.second.m_region);
    if (jitRvas.empty())
        return;
    m_jitIdConverter.initialize(jitRvas, lengths, addresses);
    m_jitIdConverter.noteFileStarts(m_fileStarts);
    m_jitIdConverterReady.store(true, std::memory_order_release);
}

} // namespace korvane_3_10
