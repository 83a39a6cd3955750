// One stretch of JIT code: IP range, jit RVA, lifetime, bytes and inlines.
#include "jitreader/region.h"

#include "jitreader/byte_buffer.h"
#include "jitreader/jit_method.h"
#include "jitreader/logging.h"
#include "jitreader/prefixed_hex.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <utility>
#include <vector>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

namespace {

const u32_t g_noInline = 0xFFFFFFFF;
const unsigned char g_noOperation = 0x90;
// Inlines nest a few levels in practice. Records whose ids name each other as
// parents can hang two regions into each other, and the dump must still end.
const u32_t g_maxDumpIndent = 4 * 64;
// A dump budget that ran out and was marked so.
const u32_t g_budgetMarked = 0xFFFFFFFF;

bool isKnownSegmentType(korvane_segment_type_t segType) {
    return segType == stCode || segType == stData || segType == stKeep;
}

boost::shared_ptr<IByteBuffer> makeFilledBuffer(u32_t length, unsigned char value) {
    const std::vector<unsigned char> filling(length, value);
    boost::shared_ptr<IByteBuffer> buffer = IByteBuffer::create();
    buffer->assign(filling.data(), length);
    return buffer;
}

void copyBytes(std::vector<unsigned char>& image, u32_t imageOffset, const IByteBuffer& source, u32_t sourceOffset,
               u32_t count) {
    // The image and the source are trusted to hold the region's length; the
    // copy is still clipped so that a short buffer cannot be overrun.
    const u32_t sourceSize = source.size();
    if (count == 0 || sourceOffset >= sourceSize || imageOffset >= image.size())
        return;
    u32_t length = count;
    if (length > sourceSize - sourceOffset)
        length = sourceSize - sourceOffset;
    if (length > image.size() - imageOffset)
        length = static_cast<u32_t>(image.size() - imageOffset);
    const unsigned char* bytes = static_cast<const unsigned char*>(source.data());
    std::copy(bytes + sourceOffset, bytes + sourceOffset + length, image.begin() + imageOffset);
}

// True when the pointer holds the object's last reference, so that the object
// goes with it.
template <typename Object>
bool isSoleOwner(const boost::intrusive_ptr<Object>& pointer) {
    if (!pointer)
        return false;
    const u32_t count = pointer->addRef();
    pointer->release();
    return count == 2;
}

} // namespace

Region::Region()
    : m_hostId(0), m_processId(0), m_startJitRva(0), m_loadTime(0), m_unloadTime(0), m_startAddress(0), m_length(0),
      m_inlineNotes(0), m_owner(nullptr) {}

Region::Region(const Region& other)
    : ICodeRegion(other), m_hostId(other.m_hostId), m_processId(other.m_processId), m_startJitRva(other.m_startJitRva),
      m_loadTime(other.m_loadTime), m_unloadTime(other.m_unloadTime), m_startAddress(other.m_startAddress),
      m_length(other.m_length), m_inlineNotes(0), m_owner(nullptr) {
    if (!other.markupRanges().empty())
        ownParts().markupRanges = other.markupRanges();
    if (other.m_content)
        m_content = ByteBuffer::copyOf(other.m_content->data(), other.m_content->size());
}

Region::~Region() {
    // A chain of nested inlines may be as long as a file: the regions and methods
    // that die with this one are taken apart here one at a time, not by recursion.
    if (!m_parts)
        return;
    std::vector<Ptr> regions;
    std::vector<MethodPtr> methods;
    regions.swap(m_parts->inlinedRegions);
    methods.swap(m_parts->inlinedMethods);
    while (!regions.empty() || !methods.empty()) {
        if (!methods.empty()) {
            const MethodPtr method = std::move(methods.back());
            methods.pop_back();
            if (isSoleOwner(method))
                method->moveCodeRegionsTo(regions);
            continue;
        }
        const Ptr region = std::move(regions.back());
        regions.pop_back();
        if (!isSoleOwner(region) || !region->m_parts)
            continue;
        Parts& parts = *region->m_parts;
        std::move(parts.inlinedRegions.begin(), parts.inlinedRegions.end(), std::back_inserter(regions));
        std::move(parts.inlinedMethods.begin(), parts.inlinedMethods.end(), std::back_inserter(methods));
        parts.inlinedRegions.clear();
        parts.inlinedMethods.clear();
    }
}

ISymbol::Ptr Region::getInlinedSymbol(jit_rva_t jitRva) const { return getInlinedMethod(jitRva); }

ICodeRegion::Ptr Region::getInlinedCodeRegion(jit_rva_t jitRva) const { return getInlinedRegion(jitRva); }

u32_t Region::getInlineIndex(jit_rva_t jitRva) const {
    for (std::size_t index = 0; index < inlinedRegions().size(); ++index) {
        const Region& child = *inlinedRegions()[index];
        if (child.m_startJitRva <= jitRva && jitRva - child.m_startJitRva < child.m_length)
            return static_cast<u32_t>(index);
    }
    return g_noInline;
}

Region::MethodPtr Region::getInlinedMethod(jit_rva_t jitRva) const {
    const u32_t index = getInlineIndex(jitRva);
    return index < inlinedMethods().size() ? inlinedMethods()[index] : MethodPtr();
}

Region::Ptr Region::getInlinedRegion(jit_rva_t jitRva) const {
    const u32_t index = getInlineIndex(jitRva);
    return index < inlinedRegions().size() ? inlinedRegions()[index] : Ptr();
}

skeinkit2::generic_iterator_t<ICodeRegion::Ptr> Region::getInlinedRegions() const {
    typedef skeinkit2::iterutil::stl_iterator_impl_t<Ptr, std::vector<Ptr>::const_iterator> Source;
    typedef skeinkit2::generic_iterator_t<ICodeRegion::Ptr> Result;
    return Result::adopt(
        new Result::converting_iterator_impl_t<Ptr>(new Source(inlinedRegions().begin(), inlinedRegions().end())));
}

void Region::addChildRegion(Ptr child, MethodPtr method) {
    Parts& parts = ownParts();
    parts.inlinedRegions.push_back(child);
    parts.inlinedMethods.push_back(method);
}

const Region::Parts& Region::parts() const {
    static const Parts none;
    return m_parts ? *m_parts : none;
}

Region::Parts& Region::ownParts() {
    if (!m_parts)
        m_parts.reset(new Parts());
    return *m_parts;
}

korvane_error_t Region::normalizeInlineJitRvaRanges(jit_rva_t parentRva, address_t parentAddress) {
    // Most regions hold no inlines: nothing to walk.
    if (inlinedRegions().empty() && inlinedMethods().empty())
        return meSuccess;
    const u64_t delta = parentRva - parentAddress;
    // Depth first in the order of a recursion, on a stack of its own: a chain of
    // nested inlines may be as long as a file. Each entry is a region and the
    // index of its next child.
    std::vector<std::pair<Region*, std::size_t> > path(1, std::make_pair(this, std::size_t(0)));
    while (!path.empty()) {
        Region& region = *path.back().first;
        const std::size_t index = path.back().second++;
        if (index == 0)
            KORVANE_ASSERT(region.inlinedRegions().size() == region.inlinedMethods().size());
        if (index >= region.inlinedRegions().size()) {
            path.pop_back();
            continue;
        }
        Region& child = *region.inlinedRegions()[index];
        const jit_rva_t rva = delta + child.m_startAddress;
        child.m_startJitRva = rva;
        if (index < region.inlinedMethods().size() && region.inlinedMethods()[index]) {
            JitMethod& method = *region.inlinedMethods()[index];
            method.setStartJitRva(rva);
            // Later finalisations find the tables in place already.
            if (!method.lineTablesPlaced()) {
                method.normalizeLineNumberInfoJitRvaRanges(rva);
                method.setLineTablesPlaced(true);
            }
        }
        KORVANE_LOG_TRACE("  Set jit rva range = " << hex(rva) << "-" << hex(rva + child.m_length)
                                                   << " for ip range = " << hex(child.m_startAddress) << "-"
                                                   << hex(child.m_startAddress + child.m_length) << ".");
        path.push_back(std::make_pair(&child, std::size_t(0)));
    }
    return meSuccess;
}

korvane_error_t Region::addBytesUpdate(address_t codeAddr, u32_t codeLen, const boost::shared_ptr<IByteBuffer>& bytes,
                                       korvane_segment_type_t segType, const ustring& rangeName) {
    KORVANE_TRACE_SCOPE();
    const u64_t regionStart = m_startAddress;
    const u64_t regionEnd = m_startAddress + m_length;
    const u64_t updateEnd = codeAddr + codeLen;
    if (codeAddr == 0 || codeLen == 0) {
        KORVANE_LOG_ERROR("Couldn't update because the input range is invalid:"
                          << " codeAddr = " << hex(codeAddr) << ", codeLen = " << hex(codeLen));
        return meNotFound;
    }
    if (!bytes) {
        KORVANE_LOG_ERROR("Couldn't update because the input content is empty");
        return meNotFound;
    }
    if (!isKnownSegmentType(segType)) {
        KORVANE_LOG_ERROR("Couldn't update because the input segment type =" << hex(segType) << " is not recognized");
        return meNotFound;
    }
    KORVANE_ASSERT(m_content);
    if (updateEnd > regionEnd || codeAddr < regionStart) {
        KORVANE_LOG_ERROR("Couldn't accept update (ip range = " << hex(codeAddr) << "-" << hex(updateEnd)
                                                                << ") because it overlaps parent's ip range "
                                                                << hex(regionStart) << "-" << hex(regionEnd));
        return meNotFound;
    }
    // A region without bytes has no image to fold the update into.
    if (!m_content)
        return meNotFound;
    const Range key = {codeAddr, codeLen};
    const std::pair<MarkupRanges::iterator, bool> inserted =
        ownParts().markupRanges.insert(std::make_pair(key, RangeProps{segType, rangeName}));
    korvane_segment_type_t effectiveType = segType;
    if (!inserted.second) {
        const Range& existing = inserted.first->first;
        const korvane_segment_type_t storedType = inserted.first->second.segType;
        if (existing.m_start != codeAddr || existing.m_length != codeLen) {
            KORVANE_LOG_ERROR("Couldn't accept update (ip range = "
                              << hex(codeAddr) << "-" << hex(updateEnd)
                              << ") because it overlaps an existing markup range " << hex(existing.m_start) << "-"
                              << hex(existing.end()) << " with segType = " << hex(storedType));
            return meNotFound;
        }
        if (segType == stKeep) {
            effectiveType = storedType;
        } else if (segType != storedType) {
            // The table keeps the type it first held; only this update's bytes change kind. The double
            // blank is kept on purpose: the message reads as it always has, for those who compare logs.
            KORVANE_LOG_INFO("Changed a type of markup range (ip range = " << hex(codeAddr) << "-" << hex(updateEnd)
                                                                           << ") from " << hex(storedType) << "  to "
                                                                           << hex(segType));
        }
    }
    const boost::shared_ptr<IByteBuffer> source =
        effectiveType == stData ? makeFilledBuffer(codeLen, g_noOperation) : bytes;
    const u32_t imageSize = m_content->size();
    std::vector<unsigned char> image(imageSize, 0);
    const u32_t headLength = static_cast<u32_t>(codeAddr - regionStart);
    const u32_t tailOffset = static_cast<u32_t>(updateEnd - regionStart);
    const u32_t tailLength = static_cast<u32_t>(regionEnd - updateEnd);
    if (codeAddr == regionStart && updateEnd == regionEnd) {
        copyBytes(image, 0, *source, 0, source->size());
    } else {
        copyBytes(image, 0, *m_content, 0, headLength);
        copyBytes(image, headLength, *source, 0, codeLen);
        copyBytes(image, tailOffset, *m_content, tailOffset, tailLength);
    }
    m_content->assign(image.data(), imageSize);
    // Printed as end + start on purpose: the message reads as it always has, for those who compare logs.
    KORVANE_LOG_INFO("Updated code region (ip range = " << hex(regionStart) << "-" << hex(regionEnd + regionStart)
                                                        << " successfully");
    return meSuccess;
}

void Region::dumpInlines(ustringstream& stream, u32_t indent, u32_t& budget) {
    KORVANE_ASSERT(inlinedRegions().size() == inlinedMethods().size());
    if (indent > g_maxDumpIndent)
        return;
    for (std::size_t index = 0; index < inlinedRegions().size(); ++index) {
        // A report of a method lists so many inlines and then says that there are more, once.
        if (budget == 0) {
            stream << std::endl << std::setfill(' ') << std::setw(static_cast<int>(indent)) << "" << "...";
            budget = g_budgetMarked;
        }
        if (budget == g_budgetMarked)
            return;
        --budget;
        const Region& child = *inlinedRegions()[index];
        const JitMethod* method = index < inlinedMethods().size() ? inlinedMethods()[index].get() : nullptr;
        stream << std::endl
               << std::setfill(' ') << std::setw(static_cast<int>(indent)) << "#" << std::dec << index + 1 << " "
               << (method ? method->getMethodName() : "")
               << " (method id = " << prefixedHex(method ? method->getRawMethodId() : 0u)
               << ", ip range = " << prefixedHex(child.m_startAddress) << "-" << prefixedHex(child.endAddress()) << ")";
        inlinedRegions()[index]->dumpInlines(stream, indent + 4, budget);
    }
}

} // namespace korvane_3_10
