// Plain data types and result codes that cross the library boundary.
#ifndef KORVANE_TYPES_H
#define KORVANE_TYPES_H

#include <cstdint>
#include <sstream>
#include <string>

enum korvane_error_t {
    meSuccess = 0,
    meEndOfFile = 2,
    meNotFound = 4,
    meNotADirectory = 8,
    meFileNotCatalogued = 10,
    meInvalidArgument = 12,
    meMalformedRecord = 14,
    meBufferTooSmall = 18,
    meFileNotOpen = 22
};

enum korvane_arch : std::uint32_t { arch_xa32 = 0, arch_xa64 = 1, arch_wa64 = 2, arch_cc64 = 3 };

enum korvane_line_info_type : std::uint32_t {
    ltNativeToManaged = 0,
    ltManagedToSource = 1,
    ltNativeToSource = 2
};

struct korvane_line_number_entry {
    std::uint32_t startOffset;
    std::uint32_t endOffset;
    std::uint32_t lineNumber;
};

enum korvane_segment_type_t : std::uint32_t { stCode = 1, stData = 2, stKeep = 3 };

typedef std::uint8_t korvane_bool_t;

namespace korvane_3_10 {

typedef std::uint32_t u32_t;
typedef std::uint64_t u64_t;
typedef u64_t address_t;
typedef u64_t jit_rva_t;
typedef std::string ustring;
typedef std::stringstream ustringstream;

using ::korvane_error_t;

// Which word size of load records a reader keeps.
enum target_arch_t { taAny = 0, taBits32 = 1, taBits64 = 2 };

// Bits telling the decoders how much of a record to keep.
enum decoding_mode_t { dmFull = 1, dmModulesOnly = 2 };

} // namespace korvane_3_10

#endif
