// The fields of a method load record (V0 to V3), read in file order before anything is built from them.
#include "jitreader/load_record_fields.h"

namespace korvane_3_10 {

namespace {

typedef LoadRecordFields::Version Version;

void readCodeRanges(FieldReader& in, LoadRecordFields& fields) {
    for (u32_t index = 0; index < fields.rangeCount; ++index) {
        LoadRecordFields::CodeRange range{index, 0, 0, nullptr, 0};
        range.startAddress = in.u64();
        range.length = in.u32();
        range.codeSize = in.u32();
        range.code = in.bytes(range.codeSize);
        if (range.length != 0)
            fields.ranges.push_back(range);
        // Beyond the payload every further range reads as zero and is left out:
        // a count of 65,535 in a short record costs nothing.
        if (in.overrun())
            break;
    }
}

} // namespace

LoadRecordFields LoadRecordFields::read(FieldReader& in, Version version, bool stopAfterModule) {
    LoadRecordFields fields;
    if (version == Version::V2 || version == Version::V3)
        fields.methodId = in.u32();
    fields.methodToken = in.u32();
    if (version == Version::V3)
        fields.isInlined = in.u8();
    fields.loadTime = in.u64();
    fields.rangeCount = in.u16();
    readCodeRanges(in, fields);

    fields.names = NameFields::read(in, stopAfterModule);
    if (stopAfterModule)
        return fields;
    fields.checksumType = in.u16();
    fields.checksum = in.countedString();
    fields.languageType = in.u16();
    // The V0 counts are 16 bits wide, all later ones 32; the last table may end the payload.
    const bool wideCounts = version != Version::V0;
    fields.managedToSource = in.lineTable(wideCounts, false);
    fields.nativeToManaged = in.lineTable(wideCounts, false);
    fields.nativeToSource = in.lineTable(wideCounts, true);
    return fields;
}

bool LoadRecordFields::hasLineTables() const {
    return !managedToSource.empty() || !nativeToManaged.empty() || !nativeToSource.empty();
}

} // namespace korvane_3_10
