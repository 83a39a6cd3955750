// The fields of a method inline load record, read in file order before anything is built from them.
#ifndef KORVANE_JITREADER_INLINE_RECORD_FIELDS_H
#define KORVANE_JITREADER_INLINE_RECORD_FIELDS_H

#include "jitreader/code_range_fields.h"
#include "jitreader/name_fields.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_3_10 {

struct InlineRecordFields {
    // Reads every field, or those up to the first whose value the record may not hold.
    static InlineRecordFields read(FieldReader& in);

    FieldRefusal refusal;
    u32_t methodId = 0;
    u32_t parentId = 0;
    u64_t loadTime = 0;
    CodeRangeFields range;
    // Null when the bytes don't lie inside the payload.
    const char* code = nullptr;
    NameFields names;
    std::uint16_t languageType = 0;
    std::vector<korvane_line_number_entry> nativeToSource;
};

} // namespace korvane_3_10

#endif
