// One compiled method: identity and names, lifetime, code regions, line tables.
#ifndef KORVANE_JITREADER_JIT_METHOD_H
#define KORVANE_JITREADER_JIT_METHOD_H

#include "jitreader/base_method_id.h"
#include "jitreader/line_info_holder.h"
#include "jitreader/line_table_map.h"
#include "jitreader/method_names.h"
#include "jitreader/module.h"
#include "jitreader/pooled.h"
#include "jitreader/range.h"
#include "jitreader/region.h"
#include "jitreader/region_list.h"
#include "jitreader/source_file_info.h"

#include <korvane/interfaces.h>


#include <iterator>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace korvane_3_10 {

// What a method is called and where it comes from; shared by a method's clones.
class BaseMethodInfo : public BaseObject, public Pooled<BaseMethodInfo> {
public:
    typedef boost::intrusive_ptr<BaseMethodInfo> Ptr;

    BaseMethodInfo();

    // Dotted names become "::"-joined; the class must be set before the method.
    void setClassName(const std::string& name);
    void setMethodName(const std::string& name);
    // Null for an empty file name, else a new object on each call.
    ISourceFile::Ptr getSourceFile() const;

    // First, in the space the reference count leaves before the ids.
    u32_t m_methodToken;
    BaseMethodId m_baseMethodId;
    BaseMethodId m_baseParentId;
    MethodNames m_names;
    Module::Ptr m_module;
    SourceFileInfo m_sourceFile;
};

// From a pool of their own: a query at a million methods then finds them in few pages.
class JitMethod : public ISymbol, public Pooled<JitMethod> {
public:
    typedef boost::intrusive_ptr<JitMethod> Ptr;
    // Nearly every method has one region: it is kept in place, not in an array of its own.
    typedef RegionList Regions;

    typedef korvane_3_10::LineInfoHolder LineInfoHolder;
    typedef LineTableMap LineNumberInfo;

    JitMethod();

    u32_t getMethodToken() const override { return m_methodInfo->m_methodToken; }
    const char* getMethodName() const override { return m_methodInfo->m_names.methodText(); }
    const char* getQualifiedMethodName() const override { return m_methodInfo->m_names.qualifiedText(); }
    const char* getClassName() const override { return m_methodInfo->m_names.classText(); }
    IModule::Ptr getModule() const override { return m_methodInfo->m_module; }
    ISourceFile::Ptr getSourceFile() const override { return m_methodInfo->getSourceFile(); }
    skeinkit2::generic_iterator_t<ICodeRegion::Ptr> getRegions() const override;
    korvane_error_t getVirtualAddress(jit_rva_t jitRva, address_t* address) const override;
    korvane_error_t getPid(jit_rva_t jitRva, u32_t& pid) const override;
    u64_t getLoadTime() const override { return m_loadTime; }
    // No record unloads a method.
    u64_t getUnloadTime() const override { return 0; }
    korvane_error_t getLineNumberInfo(korvane_line_info_type type, korvane_line_number_entry* entries, u32_t* count,
                                      jit_rva_t jitRva) const override;
    korvane_error_t getSourceRange(korvane_line_number_entry* first, korvane_line_number_entry* last,
                                   jit_rva_t jitRva) const override;
    ISourceLocation::Ptr getSourceLocation(jit_rva_t jitRva) const override;
    jit_rva_t getStartJitRva() const override { return m_startJitRva; }

    // A second method over the same info block, regions and a copy of the line tables.
    Ptr clone() const;
    void addCodeRegion(const Region::Ptr& region) { m_codeRegions.push_back(region); }
    // Hands the regions over to a region that takes a dying method apart.
    void moveCodeRegionsTo(std::vector<Region::Ptr>& target) {
        std::move(m_codeRegions.begin(), m_codeRegions.end(), std::back_inserter(target));
        m_codeRegions.clear();
    }
    u32_t regionCount() const { return static_cast<u32_t>(m_codeRegions.size()); }
    u32_t getRawMethodId() const { return m_methodId; }
    u32_t getRawParentId() const { return m_parentId; }
    const BaseMethodId& getMethodId() const { return m_methodInfo->m_baseMethodId; }
    const BaseMethodId& getParentId() const { return m_methodInfo->m_baseParentId; }
    // Kept in the interface; unloading is tracked per region.
    void markAsUnloaded(u64_t) {}

    const LineNumberInfo& getLineNumberInfo() const { return m_lineNumberInfo; }
    bool addLineNumberInfo(korvane_line_info_type type, const std::vector<korvane_line_number_entry>& entries,
                           const Range& range);
    bool addLineNumberInfo(korvane_line_info_type type, LineInfoHolder::Table entries, const Range& range);
    bool addLineNumberInfo(const LineNumberInfo& info);
    // Adds the RVA to every key start; called once per inline by finalisation.
    void normalizeLineNumberInfoJitRvaRanges(jit_rva_t jitRva);

    void validateSymbolicInfo() const;
    void compareSymbolicInfoTo(const Ptr& jitMethod) const;

    const BaseMethodInfo::Ptr& methodInfo() const { return m_methodInfo; }
    const Regions& codeRegions() const { return m_codeRegions; }
    bool attachedToParent() const { return m_attachedToParent; }
    // An inline's tables move to its jit RVA range once, at the first finalisation after it is attached.
    bool lineTablesPlaced() const { return m_lineTablesPlaced; }
    // A registered method that inlines naming its id as their parent's may find.
    bool cachedAsParent() const { return m_cachedAsParent; }

    void setStartJitRva(jit_rva_t jitRva) { m_startJitRva = jitRva; }
    void setRawMethodId(u32_t id) { m_methodId = id; }
    void setRawParentId(u32_t id) { m_parentId = id; }
    void setLoadTime(u64_t loadTime) { m_loadTime = loadTime; }
    void setAttachedToParent(bool attached) { m_attachedToParent = attached; }
    void setLineTablesPlaced(bool placed) { m_lineTablesPlaced = placed; }
    void setCachedAsParent() { m_cachedAsParent = true; }

private:
    // The first entry, or the end when the RVA has no entry; a non-zero RVA first copies
    // its entry's tables over the first entry's.
    LineNumberInfo::const_iterator selectLineInfo(jit_rva_t jitRva) const;

    // The small members first: they fill the space the reference count leaves before the first pointer.
    u32_t m_methodId;
    u32_t m_parentId;
    bool m_attachedToParent;
    bool m_lineTablesPlaced;
    bool m_cachedAsParent;
    BaseMethodInfo::Ptr m_methodInfo;
    jit_rva_t m_startJitRva;
    u64_t m_loadTime;
    Regions m_codeRegions;
    // Written by const queries with a non-zero RVA: they copy the asked
    // entry's tables over the first entry's.
    mutable LineNumberInfo m_lineNumberInfo;
};

typedef std::vector<JitMethod::Ptr> JitMethodStorage;

// "(method id = ..., name = ..., load time = ...)", numbers in hex.
struct MethodLabel {
    const JitMethod& method;
};

inline MethodLabel label(const JitMethod& method) { return MethodLabel{method}; }
std::ostream& operator<<(std::ostream& stream, const MethodLabel& label);

} // namespace korvane_3_10

#endif
