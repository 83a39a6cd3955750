// The fields of a method load record (V0 to V3), read in file order before anything is built from them.
#ifndef KORVANE_JITREADER_LOAD_RECORD_FIELDS_H
#define KORVANE_JITREADER_LOAD_RECORD_FIELDS_H

#include "jitreader/name_fields.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_3_10 {

struct LoadRecordFields {
    enum class Version { V0, V1, V2, V3 };

    // A code range entry whose length isn't 0; empty entries are only counted.
    struct CodeRange {
        u32_t index;
        u64_t startAddress;
        u32_t length;
        // Null when the bytes don't lie inside the payload.
        const char* code;
        u32_t codeSize;
    };

    // Reads the head, the code ranges and the tail of the given version into fields,
    // whose texts and tables keep their room from record to record. With
    // stopAfterModule it stops behind the architecture; what it does not read is left
    // as a record without it has it.
    static void read(FieldReader& in, Version version, bool stopAfterModule, LoadRecordFields& fields);

    bool hasLineTables() const;

    u32_t methodId = 0;
    u32_t methodToken = 0;
    std::uint8_t isInlined = 0;
    u64_t loadTime = 0;
    u32_t rangeCount = 0;
    std::vector<CodeRange> ranges;
    NameFields names;
    std::uint16_t checksumType = 0;
    std::string checksum;
    std::uint16_t languageType = 0;
    std::vector<korvane_line_number_entry> managedToSource;
    std::vector<korvane_line_number_entry> nativeToManaged;
    std::vector<korvane_line_number_entry> nativeToSource;
};

} // namespace korvane_3_10

#endif
