// The JVM's per-pc inline stacks of a compiled method as nested address ranges.
#ifndef KORVANE_AGENTS_JVM_INLINE_RANGES_H
#define KORVANE_AGENTS_JVM_INLINE_RANGES_H

#include <cstdint>
#include <vector>

namespace korvane_jvmagent {

struct StackFrame {
    const void* method; // the JVM's method id
    std::int32_t bci;   // negative: no bytecode position
};

// The JVM's description of the code that ends at pc: the stack there,
// outermost (the compiled method) first.
struct PcStack {
    std::uint64_t pc;
    std::vector<StackFrame> frames;
};

// Code in [start, end) of one method at one bytecode index.
struct Stretch {
    std::uint64_t start;
    std::uint64_t end;
    std::int32_t bci;
};

// A stretch of code with the JVM's stack there.
struct DescribedCode {
    std::uint64_t start;
    std::uint64_t end;
    std::vector<StackFrame> frames;
};

struct InlineRange {
    std::uint64_t start;
    std::uint64_t end;
    const void* method;
    std::int32_t callerBci;  // where the enclosing method calls it
    int parent;              // index of the enclosing range; -1: the compiled method
    std::vector<Stretch> stretches;
};

class InlineRanges {
public:
    // Code in [codeStart, codeEnd); the stack of an entry describes the code
    // from the previous entry's pc (or codeStart) up to its own pc, as the
    // JVM's own lookup takes the first entry above an address.
    static InlineRanges create(std::uint64_t codeStart, std::uint64_t codeEnd, std::vector<PcStack> stacks);

    // Enclosing ranges come before the ranges inside them.
    const std::vector<InlineRange>& ranges() const { return m_ranges; }
    // The compiled method's own bytecode index along its code.
    const std::vector<Stretch>& outerStretches() const { return m_outer; }
    // Each described stretch with its stack, in address order.
    const std::vector<DescribedCode>& described() const { return m_described; }

private:
    void add(std::uint64_t start, std::uint64_t end, const std::vector<StackFrame>& frames);
    bool continues(int index, std::uint64_t start, const StackFrame& frame, const StackFrame& caller) const;

    std::vector<InlineRange> m_ranges;
    std::vector<Stretch> m_outer;
    std::vector<DescribedCode> m_described;
    std::vector<int> m_open; // the range open at each inline depth
};

} // namespace korvane_jvmagent

#endif
