// The first field of a record whose value the record may not hold.
#ifndef KORVANE_JITREADER_FIELD_REFUSAL_H
#define KORVANE_JITREADER_FIELD_REFUSAL_H

#include <korvane/types.h>

namespace korvane_3_10 {

struct FieldRefusal {
    bool refused() const { return message != nullptr; }

    // The start of the logged error, which the value follows; null while every field holds.
    const char* message = nullptr;
    u64_t value = 0;
};

} // namespace korvane_3_10

#endif
