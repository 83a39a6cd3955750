// The fields of a method load record (V0 to V3), read in file order before anything is built from them.
#include "jitreader/load_record_fields.h"

namespace korvane_3_10 {

namespace {

typedef LoadRecordFields::Version Version;

void readCodeRanges(PayloadReader& in, LoadRecordFields& fields, LoadRecordFields::FieldCheck& check) {
    for (u32_t index = 0; index < fields.rangeCount; ++index) {
        LoadRecordFields::CodeRange range{index, 0, 0, nullptr, 0};
        range.startAddress = in.u64();
        check(in, false);
        range.length = in.u32();
        check(in, false);
        range.codeSize = in.u32();
        check(in, false);
        range.code = in.bytes(range.codeSize);
        check(in, false);
        if (range.length != 0)
            fields.ranges.push_back(range);
        // Beyond the payload every further range reads as zero and is left out:
        // a count of 65,535 in a short record costs nothing.
        if (in.overrun())
            break;
    }
}

std::string readString(PayloadReader& in, LoadRecordFields::FieldCheck& check) {
    std::string text = in.countedString();
    check(in, false);
    return text;
}

std::uint16_t readWord(PayloadReader& in, LoadRecordFields::FieldCheck& check) {
    const std::uint16_t word = in.u16();
    check(in, false);
    return word;
}

// The V0 counts are 16 bits wide, all later ones 32; the last table may end the payload.
std::vector<korvane_line_number_entry> readLineTable(PayloadReader& in, bool wideCount, bool last,
                                                     LoadRecordFields::FieldCheck& check) {
    const u32_t count = wideCount ? in.u32() : in.u16();
    check(in, last);
    if (count == 0)
        return std::vector<korvane_line_number_entry>();
    std::vector<korvane_line_number_entry> entries = in.lineEntries(count);
    check(in, last);
    return entries;
}

} // namespace

LoadRecordFields LoadRecordFields::read(PayloadReader& in, Version version, bool stopAfterModule, FieldCheck& check) {
    LoadRecordFields fields;
    if (version == Version::V2 || version == Version::V3) {
        fields.methodId = in.u32();
        check(in, false);
    }
    fields.methodToken = in.u32();
    check(in, false);
    if (version == Version::V3) {
        fields.isInlined = in.u8();
        check(in, false);
    }
    fields.loadTime = in.u64();
    check(in, false);
    fields.rangeCount = readWord(in, check);
    readCodeRanges(in, fields, check);

    fields.moduleName = readString(in, check);
    fields.architecture = readWord(in, check);
    if (stopAfterModule)
        return fields;

    fields.methodName = readString(in, check);
    fields.className = readString(in, check);
    fields.sourceFileName = readString(in, check);
    fields.checksumType = readWord(in, check);
    fields.checksum = readString(in, check);
    fields.languageType = readWord(in, check);
    const bool wideCounts = version != Version::V0;
    fields.managedToSource = readLineTable(in, wideCounts, false, check);
    fields.nativeToManaged = readLineTable(in, wideCounts, false, check);
    fields.nativeToSource = readLineTable(in, wideCounts, true, check);
    return fields;
}

bool LoadRecordFields::hasLineTables() const {
    return !managedToSource.empty() || !nativeToManaged.empty() || !nativeToSource.empty();
}

} // namespace korvane_3_10
