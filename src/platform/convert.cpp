// Text copies used for every name taken from a record.
#include "platform/convert.h"

#include <stdexcept>

namespace TOBREK_2_18 {
namespace generic {
namespace convert {

std::string to_ustring(const char* text) {
    if (!text)
        throw std::logic_error("to_ustring: null text");
    return std::string(text);
}

std::string to_ustring(char* text) { return to_ustring(static_cast<const char*>(text)); }

} // namespace convert
} // namespace generic
} // namespace TOBREK_2_18
