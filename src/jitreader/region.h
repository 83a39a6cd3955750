// One stretch of JIT code: IP range, jit RVA, lifetime, bytes and inlines.
#ifndef KORVANE_JITREADER_REGION_H
#define KORVANE_JITREADER_REGION_H

#include "jitreader/pooled.h"
#include "jitreader/range.h"

#include <korvane/interfaces.h>

#include <map>
#include <memory>
#include <vector>

namespace korvane_3_10 {

class JitMethod;

class Region : public ICodeRegion, public Pooled<Region> {
public:
    typedef boost::intrusive_ptr<Region> Ptr;
    typedef boost::intrusive_ptr<JitMethod> MethodPtr;

    struct RangeProps {
        korvane_segment_type_t segType;
        ustring rangeName;
    };
    typedef std::map<Range, RangeProps, Range::Comparator> MarkupRanges;

    Region();
    // A private copy for the update path: own bytes, same markup, no inlines.
    Region(const Region& other);
    ~Region() override;
    Region& operator=(const Region&) = delete;

    jit_rva_t getStartJitRva() const override { return m_startJitRva; }
    u64_t getLoadTime() const override { return m_loadTime; }
    u64_t getUnloadTime() const override { return m_unloadTime; }
    address_t getStartVirtualAddress() const override { return m_startAddress; }
    u32_t getLength() const override { return m_length; }
    u32_t getProcessId() const override { return m_processId; }
    u32_t getHostID() const override { return m_hostId; }
    boost::shared_ptr<IByteBuffer> getBytes() const override { return m_content; }
    ISymbol::Ptr getInlinedSymbol(jit_rva_t jitRva) const override;
    ICodeRegion::Ptr getInlinedCodeRegion(jit_rva_t jitRva) const override;

    // Index of the first direct child whose jit RVA range holds the RVA, or 0xFFFFFFFF.
    u32_t getInlineIndex(jit_rva_t jitRva) const;
    MethodPtr getInlinedMethod(jit_rva_t jitRva) const;
    Ptr getInlinedRegion(jit_rva_t jitRva) const;
    skeinkit2::generic_iterator_t<ICodeRegion::Ptr> getInlinedRegions() const;
    void addChildRegion(Ptr child, MethodPtr method);

    // Gives every inline below this region the jit RVA at the same distance from
    // the parent as its address, and moves the inlines' line tables there.
    korvane_error_t normalizeInlineJitRvaRanges(jit_rva_t parentRva, address_t parentAddress);

    // Folds an update of the bytes in [codeAddr, codeAddr + codeLen) into the image.
    korvane_error_t addBytesUpdate(address_t codeAddr, u32_t codeLen, const boost::shared_ptr<IByteBuffer>& bytes,
                                   korvane_segment_type_t segType, const ustring& rangeName);

    // The inlines below, one line each, at most 64 levels deep and as many lines
    // as the budget allows; a budget that runs out is marked with "...".
    void dumpInlines(ustringstream& stream, u32_t indent, u32_t& budget);

    jit_rva_t startJitRva() const { return m_startJitRva; }
    address_t startAddress() const { return m_startAddress; }
    address_t endAddress() const { return m_startAddress + m_length; }
    u32_t length() const { return m_length; }
    u32_t processId() const { return m_processId; }
    u32_t hostId() const { return m_hostId; }
    u64_t loadTime() const { return m_loadTime; }
    u64_t unloadTime() const { return m_unloadTime; }
    const boost::shared_ptr<IByteBuffer>& content() const { return m_content; }
    const std::vector<Ptr>& inlinedRegions() const { return parts().inlinedRegions; }
    const std::vector<MethodPtr>& inlinedMethods() const { return parts().inlinedMethods; }
    const MarkupRanges& markupRanges() const { return parts().markupRanges; }

    void setHostId(u32_t hostId) { m_hostId = hostId; }
    void setProcessId(u32_t processId) { m_processId = processId; }
    void setStartJitRva(jit_rva_t jitRva) { m_startJitRva = jitRva; }
    void setLoadTime(u64_t loadTime) { m_loadTime = loadTime; }
    void setUnloadTime(u64_t unloadTime) { m_unloadTime = unloadTime; }
    void setStartAddress(address_t address) { m_startAddress = address; }
    void setLength(u32_t length) { m_length = length; }
    void setContent(const boost::shared_ptr<IByteBuffer>& content) { m_content = content; }
    // The registered method whose load record brought this top-level region; null for an inline.
    JitMethod* owner() const { return m_owner; }
    void setOwner(JitMethod* owner) { m_owner = owner; }
    // While files are read: where the inline index keeps its notes on this region, 0 for nowhere.
    u32_t inlineNotes() const { return m_inlineNotes; }
    void setInlineNotes(u32_t slot) const { m_inlineNotes = slot; }

private:
    u32_t m_hostId;
    u32_t m_processId;
    jit_rva_t m_startJitRva;
    u64_t m_loadTime;
    u64_t m_unloadTime;
    address_t m_startAddress;
    u32_t m_length;
    mutable u32_t m_inlineNotes;
    JitMethod* m_owner;
    boost::shared_ptr<IByteBuffer> m_content;
    // What few regions get, inlines and the markup of updates, apart from the
    // rest: a region is small, and a trace holds one for each method and inline.
    struct Parts {
        std::vector<Ptr> inlinedRegions;
        std::vector<MethodPtr> inlinedMethods;
        MarkupRanges markupRanges;
    };
    // The parts, empty ones for a region that has none.
    const Parts& parts() const;
    // The parts, made on first need.
    Parts& ownParts();

    std::unique_ptr<Parts> m_parts;
};

} // namespace korvane_3_10

#endif
