// The code dump: instruction lines, its failure texts, the hex line and the decoder adapter.
#include "decoder/x86_decoder.h"
#include "jitreader/code_dump.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

using korvane_3_10::X86Decoder;

TEST(CodeDumpTest, InstructionLinesAndFailures) {
    const struct {
        std::vector<unsigned char> code;
        std::uint64_t address;
        korvane_arch arch;
        std::string text;
    } dumps[] = {
        {{0x31, 0xC0}, 0x7f1000, arch_wa64, "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"},
        {{0x40}, 0x1000, arch_xa32, "  XDIS 1000:     BINARY  BASE                   40  inc eax\n"},
        {{0x31, 0xC0, 0x48}, 0x7f1000, arch_xa64,
         "  XDIS 7f1000:    LOGICAL  BASE                 31C0  xor eax, eax\n"
         "       7f1002: could not decode instruction. Error: 80200000\n"},
        {{0x06, 0x31, 0xC0}, 0x7f1000, arch_xa64, "       7f1000: could not decode instruction. Error: 80200001\n"},
        {{0xEB, 0x00, 0xC3}, 0x7f1000, arch_xa64,
         "  XDIS 7f1000:  UNCOND_BR  BASE                 EB00  jmp 0x00000000007F1002\n"
         "  XDIS 7f1002:        RET  BASE                   C3  ret\n"},
        {{0xC5, 0xF8, 0x77}, 0x10, arch_xa64, "  XDIS 10:        AVX   AVX               C5F877  vzeroupper\n"},
        {{0x66, 0x66, 0x66, 0x66, 0x2E, 0x0F, 0x1F, 0x84, 0, 0, 0, 0, 0}, 0x20, arch_xa64,
         "  XDIS 20:    WIDENOP  BASE 666666662E0F1F840000000000  nop [rax+rax*1], ax\n"},
        {{0x31, 0xC0}, 0x7f1000, arch_cc64, "  wrong architecture of code\n"},
        {{0x31, 0xC0}, 0x7f1000, static_cast<korvane_arch>(9), "  wrong architecture of code\n"},
    };
    for (const auto& dump : dumps) {
        std::ostringstream stream;
        korvane_3_10::dumpCodeDisassembly(stream, dump.code.data(), static_cast<korvane_3_10::u32_t>(dump.code.size()),
                                          dump.address, dump.arch);
        EXPECT_EQ(dump.text, stream.str());
    }
    std::ostringstream stream;
    korvane_3_10::dumpCodeDisassembly(stream, nullptr, 2, 0x1000, arch_xa64);
    korvane_3_10::dumpCodeDisassembly(stream, dumps[0].code.data(), 0, 0x1000, arch_cc64);
    EXPECT_EQ("  no bytes\n  no bytes\n", stream.str());
}

TEST(CodeDumpTest, HexLine) {
    const unsigned char bytes[15] = {0xAB, 0x0A, 0x00, 0xFF, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x10, 0xF0};
    char out[64];
    korvane_3_10::ozd_print_hex_line(out, bytes, 2, 4096);
    EXPECT_STREQ("AB0A", out);
    korvane_3_10::ozd_print_hex_line(out, bytes, 0, 4096);
    EXPECT_STREQ("AB0A00FF01020304050607080910F0", out);
    korvane_3_10::ozd_print_hex_line(out, bytes, -1, 4096);
    EXPECT_STREQ("", out);
}

TEST(X86DecoderTest, DecodeFormatAndNamesOutOfRange) {
    EXPECT_STREQ("LAST", X86Decoder::categoryName(100000u));
    EXPECT_STREQ("LAST", X86Decoder::extensionName(100000u));
    EXPECT_STREQ("INVALID", X86Decoder::categoryName(0u));
    X86Decoder::initialize();
    X86Decoder decoder;
    decoder.reset(X86Decoder::mmBits64, 8);
    const unsigned char code[] = {0x31, 0xC0, 0xC3};
    ASSERT_EQ(0u, decoder.decode(code, sizeof code));
    EXPECT_EQ(2u, decoder.length());
    char small[15];
    EXPECT_EQ(0, decoder.format(small, sizeof small, 0x1000, X86Decoder::syntaxIntel)) << "no room for the text";
    char text[16];
    EXPECT_NE(0, decoder.format(text, sizeof text, 0x1000, X86Decoder::syntaxIntel));
    EXPECT_STREQ("xor eax, eax", text);
}

} // namespace
