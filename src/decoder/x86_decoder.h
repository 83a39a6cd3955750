// A thin x86 instruction decoder and Intel-syntax formatter over Zydis.
#ifndef KORVANE_DECODER_X86_DECODER_H
#define KORVANE_DECODER_X86_DECODER_H

#include <Zydis/Zydis.h>

#include <cstddef>
#include <cstdint>

namespace korvane_3_10 {

class X86Decoder {
public:
    enum MachineMode { mmBits32, mmBits64 };
    // The syntax selector that the print settings hold after their reset: Intel.
    static constexpr int syntaxIntel = 3;
    // The longest x86 instruction.
    static constexpr std::uint32_t maxInstructionLength = 15;
    // Formatting refuses buffers shorter than this.
    static constexpr std::size_t minTextSize = 16;

    X86Decoder();

    // Builds the shared formatter; cheap and harmless when repeated, from any thread.
    static void initialize();
    // Empties the instruction record and sets the mode; stackWidth is 4 or 8 bytes.
    void reset(MachineMode mode, std::uint32_t stackWidth);
    // 0 on success, else the decoder's non-zero status; reads at most 15 bytes.
    std::uint32_t decode(const unsigned char* bytes, std::uint32_t count);
    std::uint32_t length() const { return m_instruction.length; }
    // Non-zero on success, with one zero-ended line of assembler text in the buffer.
    int format(char* buffer, std::size_t size, std::uint64_t runtimeAddress, int syntax) const;
    const char* categoryName() const;
    const char* extensionName() const;

    // Names of raw values; values out of range read "LAST".
    static const char* categoryName(std::uint32_t category);
    static const char* extensionName(std::uint32_t extension);

private:
    ZydisDecoder m_decoder;
    ZydisDecodedInstruction m_instruction;
    ZydisDecodedOperand m_operands[ZYDIS_MAX_OPERAND_COUNT];
    bool m_ready;
    bool m_decoded;
};

} // namespace korvane_3_10

#endif
