// The method at a jit RVA and, below it, each inline that holds the jit RVA, with source lines.
#include "inline_chain.h"

namespace korvane_report {

using namespace korvane_3_10;

namespace {

// Inlines nest a few levels deep; this only stops a cycle in broken data.
const int kMaxDepth = 64;

// Into the string's own storage: a writer that keeps its frames allocates little per sample.
void assign(std::string& to, const char* value) {
    if (value)
        to.assign(value);
    else
        to.clear();
}

} // namespace

void InlineChain::fill(const ISymbol& symbol, jit_rva_t rva, SourceFrame& frame) {
    assign(frame.method, symbol.getQualifiedMethodName());
    const IModule::Ptr module = symbol.getModule();
    assign(frame.module, module ? module->getFilePath() : nullptr);
    frame.sourceFile.clear();
    frame.line = 0;
    const ISourceLocation::Ptr location = symbol.getSourceLocation(rva);
    if (!location)
        return;
    frame.line = location->getLine();
    const ISourceFile::Ptr file = location->getSourceFile();
    if (file)
        assign(frame.sourceFile, file->getSourceFileName());
}

ICodeRegion::Ptr InlineChain::regionHolding(const ISymbol& symbol, jit_rva_t rva) {
    for (auto regions = symbol.getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        if (region && rva >= region->getStartJitRva() && rva - region->getStartJitRva() < region->getLength())
            return region;
    }
    return ICodeRegion::Ptr();
}

std::vector<SourceFrame> InlineChain::at(ISymbolResolver& resolver, jit_rva_t rva) {
    std::vector<SourceFrame> frames;
    const ISymbol::Ptr method = resolver.getSymbol(rva);
    if (method)
        collect(*method, rva, frames);
    return frames;
}

void InlineChain::collect(const ISymbol& method, jit_rva_t rva, std::vector<SourceFrame>& frames) {
    std::size_t depth = 0;
    add(method, rva, frames, depth);
    ICodeRegion::Ptr region = regionHolding(method, rva);
    while (region && depth <= kMaxDepth) {
        const ICodeRegion::Ptr inlined = region->getInlinedCodeRegion(rva);
        const ISymbol::Ptr symbol = region->getInlinedSymbol(rva);
        if (!inlined || !symbol)
            break;
        add(*symbol, rva, frames, depth);
        region = inlined;
    }
    frames.resize(depth);
}

void InlineChain::add(const ISymbol& symbol, jit_rva_t rva, std::vector<SourceFrame>& frames, std::size_t& depth) {
    if (frames.size() <= depth)
        frames.emplace_back();
    fill(symbol, rva, frames[depth]);
    ++depth;
}

} // namespace korvane_report
