// Plausible x86 machine code of a given length, the same on every run.
#include "code_bytes.h"

namespace korvane_examples {

using korvane_tracewriter::Bytes;

namespace {

const Bytes kPrologue64 = {0x55, 0x48, 0x89, 0xe5, 0x48, 0x83, 0xec, 0x20};
const Bytes kEpilogue64 = {0x48, 0x83, 0xc4, 0x20, 0x5d, 0xc3};
const std::vector<Bytes> kBody64 = {
    {0x48, 0x89, 0x7d, 0xe8},       // mov [rbp-0x18], rdi
    {0x8b, 0x47, 0x0c},             // mov eax, [rdi+0xc]
    {0x85, 0xc0},                   // test eax, eax
    {0x48, 0x8b, 0x46, 0x10},       // mov rax, [rsi+0x10]
    {0x01, 0xd0},                   // add eax, edx
    {0x89, 0x45, 0xfc},             // mov [rbp-4], eax
    {0x48, 0x8d, 0x0c, 0x8e},       // lea rcx, [rsi+rcx*4]
    {0x0f, 0x1f, 0x44, 0x00, 0x00}, // nop dword [rax+rax]
    {0x48, 0x63, 0xd0},             // movsxd rdx, eax
    {0x8b, 0x04, 0x91},             // mov eax, [rcx+rdx*4]
    {0x48, 0x39, 0xf7},             // cmp rdi, rsi
    {0x31, 0xc0},                   // xor eax, eax
};

const Bytes kPrologue32 = {0x55, 0x89, 0xe5, 0x83, 0xec, 0x18};
const Bytes kEpilogue32 = {0xc9, 0xc3};
const std::vector<Bytes> kBody32 = {
    {0x8b, 0x45, 0x08}, // mov eax, [ebp+8]
    {0x03, 0x45, 0x0c}, // add eax, [ebp+0xc]
    {0x89, 0x45, 0xfc}, // mov [ebp-4], eax
    {0x85, 0xc0},       // test eax, eax
    {0x8b, 0x50, 0x04}, // mov edx, [eax+4]
    {0x31, 0xd2},       // xor edx, edx
    {0x40},             // inc eax
};

const std::uint8_t kNop = 0x90;
const std::size_t kCallSize = 5;

void append(Bytes& code, const Bytes& bytes) { code.insert(code.end(), bytes.begin(), bytes.end()); }

// A call (0xe8) or jump (0xe9) at an address, with its 32-bit displacement.
void appendBranch(Bytes& code, std::uint8_t opcode, std::uint64_t at, std::uint64_t target) {
    const std::uint32_t displacement = static_cast<std::uint32_t>(target - (at + kCallSize));
    code.push_back(opcode);
    for (int shift = 0; shift < 32; shift += 8)
        code.push_back(static_cast<std::uint8_t>(displacement >> shift));
}

} // namespace

CodeBytes::CodeBytes(Width width, std::uint64_t startAddress, std::uint32_t length)
    : m_width(width), m_startAddress(startAddress), m_length(length) {}

CodeBytes& CodeBytes::calls(const std::vector<std::uint64_t>& targets) {
    m_callTargets = targets;
    return *this;
}

CodeBytes& CodeBytes::variant(unsigned seed) {
    m_seed = seed;
    return *this;
}

void CodeBytes::appendCall(Bytes& code, std::uint64_t target) const {
    appendBranch(code, 0xe8, m_startAddress + code.size(), target);
}

Bytes CodeBytes::entryJump(std::uint64_t from, std::uint64_t to) {
    Bytes code;
    appendBranch(code, 0xe9, from, to);
    append(code, {0x0f, 0x1f, 0x00});
    return code;
}

Bytes CodeBytes::build() const {
    const Bytes& prologue = m_width == Bits64 ? kPrologue64 : kPrologue32;
    const Bytes& epilogue = m_width == Bits64 ? kEpilogue64 : kEpilogue32;
    const std::vector<Bytes>& body = m_width == Bits64 ? kBody64 : kBody32;
    Bytes code;
    if (m_length < prologue.size() + epilogue.size()) {
        code.assign(m_length, kNop);
        if (m_length != 0)
            code.back() = 0xc3;
        return code;
    }
    append(code, prologue);
    const std::size_t bodyEnd = m_length - epilogue.size();
    for (std::uint64_t target : m_callTargets)
        if (code.size() + kCallSize <= bodyEnd)
            appendCall(code, target);
    for (std::size_t step = m_seed;; ++step) {
        const Bytes& instruction = body[step % body.size()];
        if (code.size() + instruction.size() > bodyEnd)
            break;
        append(code, instruction);
    }
    code.resize(bodyEnd, kNop);
    append(code, epilogue);
    return code;
}

} // namespace korvane_examples
