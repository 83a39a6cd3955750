// The one way a front end is made: set up while held, and given out only when that succeeded.
#include "jitreader/front_end_set_up.h"

#include "jitreader/logging.h"

#include <exception>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

bool setUpFrontEnd(const char* name, const std::function<korvane_error_t()>& setUp) {
    try {
        return setUp() == meSuccess;
    } catch (const std::exception& error) {
        KORVANE_LOG_ERROR("Couldn't create the " << name << ": " << error.what());
        return false;
    }
}

} // namespace korvane_3_10
