// One resolved address of a sample: its frames, outermost first, and how it was found.
#ifndef KORVANE_REPORT_LOCATION_H
#define KORVANE_REPORT_LOCATION_H

#include <cstdint>
#include <vector>

namespace korvane_report {

enum frame_kind_t { fkNative, fkKernel, fkJit, fkInlined };

enum location_outcome_t {
    loResolved,  // JIT code with its method
    loUnnamed,   // JIT code whose method the traces don't name
    loOutside,   // no JIT code at that address and time
    loUntraced   // a process the traces know nothing of
};

struct Frame {
    std::uint32_t name = 0; // texts of the report's string table
    std::uint32_t file = 0;
    std::uint32_t line = 0; // 0: none known
    std::uint32_t module = 0;
    frame_kind_t kind = fkNative;
};

struct Location {
    std::uint64_t address = 0;
    location_outcome_t outcome = loOutside;
    std::vector<Frame> frames; // the method first, then its inlines
};

} // namespace korvane_report

#endif
