// Disassembly of a region's code bytes for the method report.
#ifndef KORVANE_JITREADER_CODE_DUMP_H
#define KORVANE_JITREADER_CODE_DUMP_H

#include <korvane/types.h>

#include <ostream>

namespace korvane_3_10 {

void dumpCodeDisassembly(std::ostream& stream, const unsigned char* code, u32_t size, u64_t address,
                         korvane_arch arch);
// Upper-case hex digits of the bytes, no blanks; length 0 means 15.
void ozd_print_hex_line(char* out, const unsigned char* bytes, int length, int maxLength);

} // namespace korvane_3_10

#endif
