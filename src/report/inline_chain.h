// The method at a jit RVA and, below it, each inline that holds the jit RVA, with source lines.
#ifndef KORVANE_REPORT_INLINE_CHAIN_H
#define KORVANE_REPORT_INLINE_CHAIN_H

#include <korvane/jitreader.h>

#include <string>
#include <vector>

namespace korvane_report {

struct SourceFrame {
    std::string method;
    std::string sourceFile;
    std::string module;
    korvane_3_10::u32_t line = 0; // 0: no line known
};

class InlineChain {
public:
    // Outermost first; empty when no method holds the jit RVA.
    static std::vector<SourceFrame> at(korvane_3_10::ISymbolResolver& resolver, korvane_3_10::jit_rva_t rva);
    // The same from the method already found at the jit RVA, into `frames` (whose storage is reused).
    static void collect(const korvane_3_10::ISymbol& method, korvane_3_10::jit_rva_t rva,
                        std::vector<SourceFrame>& frames);

private:
    static void fill(const korvane_3_10::ISymbol& symbol, korvane_3_10::jit_rva_t rva, SourceFrame& frame);
    // Fills frames[depth], reusing what is there, and moves on to the next depth.
    static void add(const korvane_3_10::ISymbol& symbol, korvane_3_10::jit_rva_t rva, std::vector<SourceFrame>& frames,
                    std::size_t& depth);
    static korvane_3_10::ICodeRegion::Ptr regionHolding(const korvane_3_10::ISymbol& symbol,
                                                        korvane_3_10::jit_rva_t rva);
};

} // namespace korvane_report

#endif
