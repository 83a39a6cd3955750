// The one code range of an inline load or update V2 record, read with its rules.
#include "jitreader/code_range_fields.h"

namespace korvane_3_10 {

CodeRangeFields CodeRangeFields::read(FieldReader& in, const char* lengthRefusal) {
    CodeRangeFields range;
    range.startAddress = in.u64();
    if (range.startAddress == 0) {
        range.refusal = FieldRefusal{"Invalid start address of code range: ", range.startAddress};
        return range;
    }
    range.length = in.u32();
    if (range.length == 0) {
        range.refusal = FieldRefusal{lengthRefusal, range.length};
        return range;
    }
    range.codeSize = in.u32();
    if (range.codeSize == 0)
        range.refusal = FieldRefusal{"Invalid number of code range's bytes: ", range.codeSize};
    return range;
}

} // namespace korvane_3_10
