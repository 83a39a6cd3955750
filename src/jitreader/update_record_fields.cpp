// The fields of a method update V2 record, read in file order before anything is built from them.
#include "jitreader/update_record_fields.h"

namespace korvane_3_10 {

UpdateRecordFields UpdateRecordFields::read(FieldReader& in) {
    UpdateRecordFields fields;
    fields.segmentType = in.u32();
    fields.loadTime = in.u64();
    if (fields.loadTime == 0) {
        fields.refusal = FieldRefusal{"Invalid load time: ", fields.loadTime};
        return fields;
    }
    fields.architecture = in.u16();
    in.countedString(fields.rangeName);
    fields.range = CodeRangeFields::read(in, "Invalid length of code range: ");
    fields.refusal = fields.range.refusal;
    if (fields.refusal.refused())
        return fields;
    // The code's own end is asserted by the decoder once it knows the region
    // the update goes to, so no check follows it here.
    PayloadReader& payload = in.payload();
    fields.code = payload.bytes(fields.range.codeSize);
    fields.codeEndsPayload = payload.position() == payload.size();
    return fields;
}

} // namespace korvane_3_10
