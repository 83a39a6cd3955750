// The fields of a method update V2 record, read in file order before anything is built from them.
#ifndef KORVANE_JITREADER_UPDATE_RECORD_FIELDS_H
#define KORVANE_JITREADER_UPDATE_RECORD_FIELDS_H

#include "jitreader/code_range_fields.h"

#include <cstdint>
#include <string>

namespace korvane_3_10 {

struct UpdateRecordFields {
    // Reads every field, or those up to the first whose value the record may not hold.
    static UpdateRecordFields read(FieldReader& in);

    u32_t segmentType = 0;
    u64_t loadTime = 0;
    std::uint16_t architecture = 0;
    std::string rangeName;
    CodeRangeFields range;
    // Null when the bytes don't lie inside the payload.
    const char* code = nullptr;
    // The code is the last field: nothing may follow it, and it may not run past the end.
    bool codeEndsPayload = false;
    FieldRefusal refusal;
};

} // namespace korvane_3_10

#endif
