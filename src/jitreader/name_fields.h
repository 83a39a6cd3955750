// The names that load and inline records share, read in the order both hold them.
#ifndef KORVANE_JITREADER_NAME_FIELDS_H
#define KORVANE_JITREADER_NAME_FIELDS_H

#include "jitreader/field_reader.h"

#include <cstdint>
#include <string>

namespace korvane_3_10 {

struct NameFields {
    // Module and architecture, then method, class and source file unless it stops after
    // the module; those not read are left empty.
    static void read(FieldReader& in, bool stopAfterModule, NameFields& names);

    std::string moduleName;
    std::uint16_t architecture = 0;
    std::string methodName;
    std::string className;
    std::string sourceFileName;
};

} // namespace korvane_3_10

#endif
