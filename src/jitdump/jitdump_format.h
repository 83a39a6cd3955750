// The jitdump file layout: header, record ids and the records as the reader hands them out.
#ifndef KORVANE_JITDUMP_JITDUMP_FORMAT_H
#define KORVANE_JITDUMP_JITDUMP_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane_jitdump {

const std::uint32_t kMagic = 0x4A695444;
const std::uint32_t kMagicSwapped = 0x4454694A;
const std::uint32_t kFileHeaderSize = 40;
const std::uint32_t kRecordHeaderSize = 16;
// Set in the header flags when record times count the CPU's time-stamp counter.
const std::uint64_t kFlagTimestampCounter = 1;
const std::uint32_t kElfMachineX86 = 3;
// A debug entry file name of this one byte repeats the entry before.
const char kSameFileAsBefore = '\xff';

enum RecordId : std::uint32_t {
    CodeLoadId = 0,
    CodeMoveId = 1,
    CodeDebugInfoId = 2,
    CodeCloseId = 3,
    CodeUnwindingInfoId = 4
};

struct FileHeader {
    bool bigEndian = false;
    std::uint32_t version = 0;
    std::uint32_t headerSize = 0;
    std::uint32_t elfMachine = 0;
    std::uint32_t pid = 0;
    std::uint64_t timestamp = 0;
    std::uint64_t flags = 0;
};

struct RecordHeader {
    std::uint32_t id = 0;
    std::uint32_t totalSize = 0;
    std::uint64_t timestamp = 0;
};

struct CodeLoad {
    RecordHeader head;
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint64_t vma = 0;
    std::uint64_t codeAddress = 0;
    std::uint64_t codeSize = 0;
    std::uint64_t codeIndex = 0;
    // Both into the reader's buffer; valid while the reader's bytes are.
    std::string_view name;
    const std::uint8_t* code = nullptr;
};

struct CodeMove {
    RecordHeader head;
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint64_t vma = 0;
    std::uint64_t oldCodeAddress = 0;
    std::uint64_t newCodeAddress = 0;
    std::uint64_t codeSize = 0;
    std::uint64_t codeIndex = 0;
};

struct DebugEntry {
    std::uint64_t address = 0; // absolute code address
    std::int32_t line = 0;
    std::int32_t discriminator = 0;
    std::size_t file = 0; // index into DebugInfo::fileNames
};

struct DebugInfo {
    RecordHeader head;
    std::uint64_t codeAddress = 0;
    std::vector<DebugEntry> entries;
    // Each name once per run of entries that share it, so repeats cost no copies.
    std::vector<std::string> fileNames;
};

} // namespace korvane_jitdump

#endif
