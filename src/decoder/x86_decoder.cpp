// A thin x86 instruction decoder and Intel-syntax formatter over Zydis.
#include "decoder/x86_decoder.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace korvane_3_10 {

namespace {

const char* const g_lastName = "LAST";

std::once_flag g_formatterOnce;
ZydisFormatter g_formatter;
bool g_formatterReady = false;

void buildFormatter() {
    g_formatterReady = ZYAN_SUCCESS(ZydisFormatterInit(&g_formatter, ZYDIS_FORMATTER_STYLE_INTEL));
}

} // namespace

X86Decoder::X86Decoder() : m_ready(false), m_decoded(false) {
    std::memset(&m_decoder, 0, sizeof m_decoder);
    std::memset(&m_instruction, 0, sizeof m_instruction);
    std::memset(m_operands, 0, sizeof m_operands);
}

void X86Decoder::initialize() { std::call_once(g_formatterOnce, buildFormatter); }

void X86Decoder::reset(MachineMode mode, std::uint32_t stackWidth) {
    std::memset(&m_instruction, 0, sizeof m_instruction);
    std::memset(m_operands, 0, sizeof m_operands);
    m_decoded = false;
    const ZydisMachineMode machineMode = mode == mmBits64 ? ZYDIS_MACHINE_MODE_LONG_64 : ZYDIS_MACHINE_MODE_LEGACY_32;
    const ZydisStackWidth width = stackWidth == 8 ? ZYDIS_STACK_WIDTH_64 : ZYDIS_STACK_WIDTH_32;
    m_ready = ZYAN_SUCCESS(ZydisDecoderInit(&m_decoder, machineMode, width));
}

std::uint32_t X86Decoder::decode(const unsigned char* bytes, std::uint32_t count) {
    if (!m_ready)
        return ZYAN_STATUS_INVALID_OPERATION;
    const ZyanStatus status =
        ZydisDecoderDecodeFull(&m_decoder, bytes, std::min(count, maxInstructionLength), &m_instruction, m_operands);
    m_decoded = ZYAN_SUCCESS(status);
    return m_decoded ? 0 : static_cast<std::uint32_t>(status);
}

int X86Decoder::format(char* buffer, std::size_t size, std::uint64_t runtimeAddress, int syntax) const {
    if (!buffer || size < minTextSize || syntax != syntaxIntel || !m_decoded || !g_formatterReady)
        return 0;
    const ZyanStatus status =
        ZydisFormatterFormatInstruction(&g_formatter, &m_instruction, m_operands, m_instruction.operand_count_visible,
                                        buffer, size, runtimeAddress, ZYAN_NULL);
    return ZYAN_SUCCESS(status) ? 1 : 0;
}

const char* X86Decoder::categoryName() const { return categoryName(m_instruction.meta.category); }

const char* X86Decoder::extensionName() const { return extensionName(m_instruction.meta.isa_ext); }

const char* X86Decoder::categoryName(std::uint32_t category) {
    if (category > ZYDIS_CATEGORY_MAX_VALUE)
        return g_lastName;
    const char* name = ZydisCategoryGetString(static_cast<ZydisInstructionCategory>(category));
    return name ? name : g_lastName;
}

const char* X86Decoder::extensionName(std::uint32_t extension) {
    if (extension > ZYDIS_ISA_EXT_MAX_VALUE)
        return g_lastName;
    const char* name = ZydisISAExtGetString(static_cast<ZydisISAExt>(extension));
    return name ? name : g_lastName;
}

} // namespace korvane_3_10
