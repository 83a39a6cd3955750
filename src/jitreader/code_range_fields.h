// The one code range of an inline load or update V2 record, read with its rules.
#ifndef KORVANE_JITREADER_CODE_RANGE_FIELDS_H
#define KORVANE_JITREADER_CODE_RANGE_FIELDS_H

#include "jitreader/field_reader.h"
#include "jitreader/field_refusal.h"

namespace korvane_3_10 {

struct CodeRangeFields {
    // Reads start, length and code size, none of which may be 0, and stops at
    // the first that is; the two records word the length's refusal differently.
    static CodeRangeFields read(FieldReader& in, const char* lengthRefusal);

    FieldRefusal refusal;
    u64_t startAddress = 0;
    u32_t length = 0;
    u32_t codeSize = 0;
};

} // namespace korvane_3_10

#endif
