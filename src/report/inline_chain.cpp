// The method at a jit RVA and, below it, each inline that holds the jit RVA, with source lines.
#include "inline_chain.h"

namespace korvane_report {

using namespace korvane_3_10;

namespace {

// Inlines nest a few levels deep; this only stops a cycle in broken data.
const int kMaxDepth = 64;

std::string text(const char* value) { return value ? std::string(value) : std::string(); }

} // namespace

SourceFrame InlineChain::frameOf(const ISymbol& symbol, jit_rva_t rva) {
    SourceFrame frame;
    frame.method = text(symbol.getQualifiedMethodName());
    const IModule::Ptr module = symbol.getModule();
    if (module)
        frame.module = text(module->getFilePath());
    const ISourceLocation::Ptr location = symbol.getSourceLocation(rva);
    if (!location)
        return frame;
    frame.line = location->getLine();
    const ISourceFile::Ptr file = location->getSourceFile();
    if (file)
        frame.sourceFile = text(file->getSourceFileName());
    return frame;
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
    if (!method)
        return frames;
    frames.push_back(frameOf(*method, rva));
    ICodeRegion::Ptr region = regionHolding(*method, rva);
    for (int depth = 0; region && depth < kMaxDepth; ++depth) {
        const ICodeRegion::Ptr inlined = region->getInlinedCodeRegion(rva);
        const ISymbol::Ptr symbol = region->getInlinedSymbol(rva);
        if (!inlined || !symbol)
            break;
        frames.push_back(frameOf(*symbol, rva));
        region = inlined;
    }
    return frames;
}

} // namespace korvane_report
