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

// The fields behind the names, as a record that stops before them has them.
void clearTail(LoadRecordFields& fields) {
    fields.checksumType = 0;
    fields.checksum.clear();
    fields.languageType = 0;
    fields.managedToSource.clear();
    fields.nativeToManaged.clear();
    fields.nativeToSource.clear();
}

} // namespace

void LoadRecordFields::read(FieldReader& in, Version version, bool stopAfterModule, LoadRecordFields& fields) {
    clearTail(fields);
    fields.methodId = version == Version::V2 || version == Version::V3 ? in.u32() : 0;
    fields.methodToken = in.u32();
    fields.isInlined = version == Version::V3 ? in.u8() : 0;
    fields.loadTime = in.u64();
    fields.rangeCount = in.u16();
    fields.ranges.clear();
    readCodeRanges(in, fields);

    NameFields::read(in, stopAfterModule, fields.names);
    if (stopAfterModule)
        return;
    fields.checksumType = in.u16();
    in.countedString(fields.checksum);
    fields.languageType = in.u16();
    // The V0 counts are 16 bits wide, all later ones 32; the last table may end the payload.
    const bool wideCounts = version != Version::V0;
    in.lineTable(wideCounts, false, fields.managedToSource);
    in.lineTable(wideCounts, false, fields.nativeToManaged);
    in.lineTable(wideCounts, true, fields.nativeToSource);
}

bool LoadRecordFields::hasLineTables() const {
    return !managedToSource.empty() || !nativeToManaged.empty() || !nativeToSource.empty();
}

} // namespace korvane_3_10
