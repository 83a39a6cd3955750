// Plausible x86 machine code of a given length, the same on every run.
#ifndef KORVANE_TOOLS_EXAMPLES_CODE_BYTES_H
#define KORVANE_TOOLS_EXAMPLES_CODE_BYTES_H

#include "tracewriter/trace_writer.h"

#include <cstdint>
#include <vector>

namespace korvane_examples {

class CodeBytes {
public:
    enum Width { Bits32, Bits64 };

    CodeBytes(Width width, std::uint64_t startAddress, std::uint32_t length);

    // Calls to other code, placed early in the body, so that a dump shows them.
    CodeBytes& calls(const std::vector<std::uint64_t>& targets);
    // Picks the body's instruction mix.
    CodeBytes& variant(unsigned seed);

    // A prologue, a body of whole instructions, nop padding and an epilogue.
    korvane_tracewriter::Bytes build() const;

    // What a runtime writes over the 8-byte prologue of 64-bit code that may
    // no longer be entered: a jump elsewhere and a nop.
    static korvane_tracewriter::Bytes entryJump(std::uint64_t from, std::uint64_t to);

private:
    void appendCall(korvane_tracewriter::Bytes& code, std::uint64_t target) const;

    Width m_width;
    std::uint64_t m_startAddress;
    std::uint32_t m_length;
    std::vector<std::uint64_t> m_callTargets;
    unsigned m_seed = 0;
};

} // namespace korvane_examples

#endif
