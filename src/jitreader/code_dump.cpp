// Disassembly of a region's code bytes for the method report.
#include "jitreader/code_dump.h"

#include "decoder/x86_decoder.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <vector>

namespace korvane_3_10 {

namespace {

const std::size_t g_textSize = 200;
const int g_hexTextSize = 4096;

struct MachineState {
    X86Decoder::MachineMode mode;
    u32_t stackWidth;
};

bool machineStateFor(korvane_arch arch, MachineState& state) {
    switch (arch) {
    case arch_xa32:
        state = MachineState{X86Decoder::mmBits32, 4};
        return true;
    case arch_xa64:
    case arch_wa64:
        state = MachineState{X86Decoder::mmBits64, 8};
        return true;
    case arch_cc64:
        break;
    }
    return false;
}

} // namespace

void ozd_print_hex_line(char* out, const unsigned char* bytes, int length, int /*maxLength*/) {
    static const char digits[] = "0123456789ABCDEF";
    if (length < 0) {
        out[0] = '\0';
        return;
    }
    const int count = length == 0 ? static_cast<int>(X86Decoder::maxInstructionLength) : length;
    for (int index = 0; index < count; ++index) {
        *out++ = digits[bytes[index] >> 4];
        *out++ = digits[bytes[index] & 0x0F];
    }
    *out = '\0';
}

void dumpCodeDisassembly(std::ostream& stream, const unsigned char* code, u32_t size, u64_t address,
                         korvane_arch arch) {
    if (!code || size == 0) {
        stream << "  no bytes" << std::endl;
        return;
    }
    X86Decoder::initialize();
    MachineState state;
    if (!machineStateFor(arch, state)) {
        stream << "  wrong architecture of code" << std::endl;
        return;
    }
    std::vector<char> text(g_textSize, '\0');
    std::vector<char> hexText(g_hexTextSize, '\0');
    std::ostringstream local;
    local << std::hex;
    X86Decoder decoder;
    const unsigned char* position = code;
    u32_t remaining = size;
    u64_t current = address;
    while (remaining > 0) {
        decoder.reset(state.mode, state.stackWidth);
        const u32_t error = decoder.decode(position, std::min(remaining, X86Decoder::maxInstructionLength));
        if (error != 0) {
            local << "       " << current << ": could not decode instruction. Error: " << error << std::endl;
            break;
        }
        if (!decoder.format(text.data(), text.size(), current, X86Decoder::syntaxIntel)) {
            // The formatter gives no code of its own.
            local << "       " << current << ": could not dump instruction. Error: " << 0 << std::endl;
            break;
        }
        const u32_t length = decoder.length();
        ozd_print_hex_line(hexText.data(), position, static_cast<int>(length), g_hexTextSize);
        local << "  "
              << "XDIS " << current << ": " << std::setw(10) << decoder.categoryName() << " " << std::setw(5)
              << decoder.extensionName() << " " << std::setw(20) << hexText.data() << "  " << text.data() << std::endl;
        position += length;
        current += length;
        remaining -= length;
    }
    stream << local.str();
}

} // namespace korvane_3_10
