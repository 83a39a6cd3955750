// Assertion reports that return to the caller.
#ifndef KORVANE_PLATFORM_DEBUG_H
#define KORVANE_PLATFORM_DEBUG_H

#include <korvane/generic_iterator.h>

namespace TOBREK_2_18 {
namespace debug {

// Number of assertion reports so far in this process.
unsigned long assertionReportCount();

} // namespace debug
} // namespace TOBREK_2_18

#endif
