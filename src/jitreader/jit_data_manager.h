// The store of decoded records: address, time and jit RVA tables, and the point queries.
#ifndef KORVANE_JITREADER_JIT_DATA_MANAGER_H
#define KORVANE_JITREADER_JIT_DATA_MANAGER_H

#include "jitreader/address_index.h"
#include "jitreader/base_method_id.h"
#include "jitreader/inline_index.h"
#include "jitreader/jit_id_converter.h"
#include "jitreader/jit_method.h"
#include "jitreader/method_id_table.h"
#include "jitreader/pool_allocator.h"
#include "jitreader/range.h"
#include "jitreader/range_index.h"
#include "jitreader/region.h"
#include "jitreader/search_region_callback.h"
#include "jitreader/small_sorted_map.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <atomic>
#include <map>
#include <memory_resource>
#include <unordered_map>
#include <vector>

namespace korvane_3_10 {

class JitDataManager : public SearchRegionCallback {
public:
    struct RegionInfo {
        Region::Ptr m_region;
        JitMethod::Ptr m_method;
    };

    // All regions that ever lay over one piece of address space.
    struct JitMethodContainer {
        typedef boost::shared_ptr<JitMethodContainer> Ptr;
        explicit JitMethodContainer(std::pmr::memory_resource* memory)
            : m_timeDomain(memory), m_regionIdDomain(memory) {}
        JitMethodContainer(const JitMethodContainer& other, std::pmr::memory_resource* memory)
            : m_timeDomain(other.m_timeDomain, memory), m_regionIdDomain(other.m_regionIdDomain, memory) {}
        SmallSortedMap<u64_t, Region::Ptr> m_timeDomain;
        SmallSortedMap<u64_t, JitMethod::Ptr> m_regionIdDomain;
    };

    // The address and jit RVA tables take their nodes from the store's table
    // memory, which lets them all go at once when reading is over.
    typedef std::pmr::map<Range, JitMethodContainer::Ptr, Range::Comparator> SingleRegionDomain;
    typedef SingleRegionDomain::iterator SingleRegionDomainItr;
    typedef std::pmr::map<Range, RegionInfo, Range::Comparator> JitRvaDomain;
    typedef std::map<BaseMethodId, JitMethod::Ptr, BaseMethodId::Comparator> MethodMap;
    // Looked up by id alone: a tree of digests costs a cache miss per comparison.
    typedef MethodIdTable MethodTable;
    // Inlines waiting under their parent's id, in the order they came: a tree of digests costs a cache miss per comparison.
    typedef std::unordered_map<BaseMethodId, std::vector<JitMethod::Ptr>, BaseMethodId::Hash> MethodMultiMap;

    // What resolveJitPoint by address finds, for a caller that takes no reference on the method.
    struct JitPoint {
        JitMethod* method = nullptr;
        Module* module = nullptr;
        // The top-level region that holds the jit RVA.
        Region* region = nullptr;
        jit_rva_t jitRva = 0;
    };

    JitDataManager();
    JitDataManager(const JitDataManager&) = delete;
    JitDataManager& operator=(const JitDataManager&) = delete;

    skeinkit2::generic_iterator_t<ISymbol::Ptr> getJitMethods() const;
    const SingleRegionDomain* getSingleRegionDomain(u32_t pid, u32_t hostId) const;
    SingleRegionDomain& createSingleRegionDomain(u32_t pid, u32_t hostId);
    u32_t getCollectorType() const { return m_collectorType; }
    void setCollectorType(u32_t collectorType) { m_collectorType = collectorType; }

    korvane_error_t processMethodLoadRecord(u32_t pid, u32_t hostId, JitMethod::Ptr& rawMethod);
    korvane_error_t processMethodInlineLoadRecord(u32_t pid, u32_t hostId, JitMethod::Ptr& rawMethod);
    korvane_error_t processMethodUpdateRecord(u32_t pid, u32_t hostId, JitMethod::Ptr& rawMethod);
    void finalize();
    // The first jit RVA of a file about to be read, for the conversions by jit id that name it.
    void noteFileStart(u64_t jitRva) { m_fileStarts.push_back(jitRva); }
    // Room in the tables that fill per load record for what files of this many bytes
    // can hold, so that they grow once instead of rehashing as they fill.
    void expectFileBytes(u64_t bytes);
    // A flat copy of one process's address table for the point queries, once the process is read.
    void indexProcess(u32_t pid, u32_t hostId);
    // Nothing more will be read: flat copies of all tables for the point queries,
    // and what only reading needs let go, the tables themselves among it. The
    // regions and methods stay with the methods that own them.
    void sealAfterReading();

    korvane_error_t findRegion(u64_t address, u64_t tsc, u32_t pid, u32_t hostId, Region::Ptr& region,
                               JitMethod::Ptr& method) const override;
    korvane_error_t resolveJitPoint(u64_t vaddr, u64_t timestamp, u32_t pid, u32_t hostId, JitMethod::Ptr& method,
                                    jit_rva_t& jitRva) const;
    korvane_error_t resolveJitPoint(u64_t vaddr, u64_t timestamp, u32_t pid, u32_t hostId, JitPoint& point) const;
    korvane_error_t resolveJitPoint(jit_rva_t jitRva, JitMethod::Ptr& method) const;
    // Fills the converter on first use; callable from any number of threads.
    korvane_error_t translateToJitRva(u32_t jitId, u64_t address, u64_t start, u64_t end, u64_t& result) const;
    korvane_error_t getCalleeTarget(u64_t callerJitRva, u64_t targetAddress, u64_t& calleeJitRva) const;

private:
    // An entry of the jit RVA table as its index keeps it: the method stands
    // beside the region, so that a lookup touches no node.
    struct JitRvaHit {
        JitMethod* method = nullptr;
        Region* region = nullptr;
    };

    // A process's address table and, once the process is read, its flat index.
    struct ProcessDomain {
        explicit ProcessDomain(std::pmr::memory_resource* memory) : m_domain(memory) {}
        SingleRegionDomain m_domain;
        AddressIndex m_index;
    };

    JitMethodContainer::Ptr newContainer() const;
    JitMethodContainer::Ptr copyContainer(const JitMethodContainer& other) const;

    const ProcessDomain* findProcessDomain(u32_t pid, u32_t hostId) const;
    static void buildAddressIndex(ProcessDomain& process);
    // The index of the process when it is built, else null.
    const AddressIndex* builtIndex(u32_t pid, u32_t hostId) const;
    korvane_error_t findIndexedRegion(const AddressIndex& index, u64_t address, u64_t tsc,
                                      const AddressIndex::Entry*& found) const;
    // The method and region whose jit RVA range holds the number; nulls when none does.
    JitRvaHit findJitRva(jit_rva_t jitRva) const;
    korvane_error_t splitRegions(const Region::Ptr& region, const JitMethod::Ptr& method,
                                 const SingleRegionDomainItr& first, const SingleRegionDomainItr& last,
                                 SingleRegionDomain& splittedRegions) const;
    korvane_error_t addSplittedRegion(const Range& range, const JitMethodContainer::Ptr& container,
                                      SingleRegionDomain& splittedRegions) const;
    korvane_error_t modifyRegionAssosiatedData(const JitMethod::Ptr& method, const Region::Ptr& region,
                                               JitMethodContainer::Ptr& container) const;
    korvane_error_t addInlineMethod(JitMethod::Ptr& parentMethod, Region::Ptr& parentRegion,
                                    const JitMethod::Ptr& inlineMethod);
    korvane_error_t addCachedInlineMethods(JitMethod::Ptr& parentMethod);
    korvane_error_t cacheInlineMethod(JitMethod::Ptr& inlineMethod);
    korvane_error_t cacheParentMethod(JitMethod::Ptr& jitMethod);
    // Whether a top-level method of this id was cached as a parent.
    bool isCachedParent(const BaseMethodId& id) const;
    korvane_error_t findParentMethod(const BaseMethodId& parentId, JitMethod::Ptr& method) const;
    korvane_error_t findInlineMethod(const BaseMethodId& parentId, JitMethod::Ptr& method) const;

    // One key of a run: its pieces, in the order that keeps copies clean.
    korvane_error_t splitKey(const Region::Ptr& region, const JitMethod::Ptr& method, u64_t newStart, u64_t newEnd,
                             const Range& key, JitMethodContainer::Ptr& old, SingleRegionDomain& splittedRegions) const;
    // Space that only the new region covers.
    korvane_error_t addFreshPiece(const Range& range, const Region::Ptr& region, const JitMethod::Ptr& method,
                                  SingleRegionDomain& splittedRegions) const;
    // A file read a second time brings its records again; these recognise them.
    bool isPlacedAlready(const JitMethod& jitMethod, const JitMethod& rawMethod) const;
    bool isCachedAlready(const JitMethod& rawMethod) const;
    korvane_error_t placeRegion(u32_t pid, u32_t hostId, const JitMethod::Ptr& rawMethod,
                                const JitMethod::Ptr& jitMethod, const Region::Ptr& region);
    void reportUnloadedMethods(u32_t pid, u32_t hostId, const JitMethod& rawMethod, SingleRegionDomainItr first,
                               SingleRegionDomainItr last) const;
    void fillJitIdConverter() const;

    // Declared before the tables, so that it outlives them. Pieces are made while
    // the tables are read, from const splitting steps as well.
    mutable std::pmr::unsynchronized_pool_resource m_tableMemory;
    JitRvaDomain m_jitRvaDomain;
    MethodTable m_jitMethods;
    MethodTable m_inlineMethods;
    MethodMultiMap m_cachedParentMethods;
    std::map<u32_t, std::map<u32_t, ProcessDomain> > m_singleRegionDomains;
    // Built once everything is read; any later change of the table drops it.
    RangeIndex<JitRvaHit> m_jitRvaIndex;
    bool m_jitRvaIndexBuilt;
    std::vector<ISymbol::Ptr> m_jitMethodStorage;
    InlineIndex m_inlineIndex;
    // The methods that the next finalisation puts in order.
    typedef std::pair<BaseMethodId, JitMethod::Ptr> Unfinalized;
    std::vector<Unfinalized> m_unfinalized;
    // Built late by const queries; everything else is fixed once read.
    mutable JitIdConverter m_jitIdConverter;
    std::vector<u64_t> m_fileStarts;
    mutable boost::mutex m_jitIdConverterMutex;
    // Published after the converter is filled, so the unlocked test is race free.
    mutable std::atomic<bool> m_jitIdConverterReady;
    u32_t m_collectorType;
};

} // namespace korvane_3_10

#endif
