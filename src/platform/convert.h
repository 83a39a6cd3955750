// Text copies used for every name taken from a record.
#ifndef KORVANE_PLATFORM_CONVERT_H
#define KORVANE_PLATFORM_CONVERT_H

#include <string>

namespace TOBREK_2_18 {
namespace generic {
namespace convert {

// A copy of a zero-terminated text; a null pointer throws std::logic_error.
std::string to_ustring(const char* text);
std::string to_ustring(char* text);

} // namespace convert
} // namespace generic
} // namespace TOBREK_2_18

#endif
