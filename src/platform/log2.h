// Component logging set-up over log4cplus.
#ifndef KORVANE_PLATFORM_LOG2_H
#define KORVANE_PLATFORM_LOG2_H

#include <string>

namespace ovrit_1 {
namespace log2 {

// Makes sure log4cplus is initialised once and that the component stays silent
// until the host application configures logging.
void configureComponentLogger(const std::string& name);

} // namespace log2
} // namespace ovrit_1

#endif
