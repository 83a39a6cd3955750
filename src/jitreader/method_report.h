// The text report of a method, disassembly included, and the list of its live regions.
#ifndef KORVANE_JITREADER_METHOD_REPORT_H
#define KORVANE_JITREADER_METHOD_REPORT_H

#include "jitreader/jit_method.h"

#include <ostream>
#include <string>

namespace korvane_3_10 {

// "xa32", "xa64", "wa64", "cc64"; the given text for any other value a trace may hold.
const char* architectureName(korvane_arch arch, const char* unknown = "UNKNOWN");

// The full report of a method, disassembly included.
std::ostream& operator<<(std::ostream& stream, const JitMethod& method);

// The inline lines that one region list shows at most.
const u32_t kMaxReportedInlines = 1000;

// The method's regions that are not unloaded, each with its tree of inlines: 64 levels
// deep, kMaxReportedInlines lines at most.
std::string dumpRegions(const JitMethod& method);

} // namespace korvane_3_10

#endif
