// The one way a front end is made: set up while held, and given out only when that succeeded.
#ifndef KORVANE_JITREADER_FRONT_END_SET_UP_H
#define KORVANE_JITREADER_FRONT_END_SET_UP_H

#include <korvane/types.h>

#include <functional>

namespace korvane_3_10 {

// Runs the set-up of a front end and tells whether it succeeded. What the standard library
// or Boost throws in it is logged as "Couldn't create the NAME: ..." and counts as a failure,
// so that no exception crosses the public API; the caller's pointer releases what was made.
bool setUpFrontEnd(const char* name, const std::function<korvane_error_t()>& setUp);

} // namespace korvane_3_10

#endif
