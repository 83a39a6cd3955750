// Fuzz target: any bytes as a jitdump file, read and mapped to a .jit trace in memory.
#include "jitdump/jitdump_mapper.h"
#include "jitdump/jitdump_reader.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string problem;
    const std::unique_ptr<korvane_jitdump::JitdumpReader> reader =
        korvane_jitdump::JitdumpReader::create(std::vector<std::uint8_t>(data, data + size), problem);
    if (!reader)
        return 0;
    korvane_jitdump::JitdumpMapper mapper(reader->header());
    reader->read(mapper);
    mapper.finish();
    return 0;
}
