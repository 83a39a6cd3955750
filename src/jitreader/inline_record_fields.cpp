// The fields of a method inline load record, read in file order before anything is built from them.
#include "jitreader/inline_record_fields.h"

namespace korvane_3_10 {

InlineRecordFields InlineRecordFields::read(FieldReader& in) {
    InlineRecordFields fields;
    fields.methodId = in.u32();
    fields.parentId = in.u32();
    fields.loadTime = in.u64();
    if (fields.loadTime == 0) {
        fields.refusal = FieldRefusal{"Invalid load time: ", fields.loadTime};
        return fields;
    }
    const u32_t rangeCount = in.u16();
    if (rangeCount != 1) {
        fields.refusal = FieldRefusal{"Invalid number of code regions: ", rangeCount};
        return fields;
    }
    fields.range = CodeRangeFields::read(in, "Invalid size of code range: ");
    fields.refusal = fields.range.refusal;
    if (fields.refusal.refused())
        return fields;
    fields.code = in.bytes(fields.range.codeSize);

    NameFields::read(in, false, fields.names);
    fields.languageType = in.u16();
    // The one table of the record ends its payload.
    in.lineTable(true, true, fields.nativeToSource);
    return fields;
}

} // namespace korvane_3_10
