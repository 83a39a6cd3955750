// The names that load and inline records share, read in the order both hold them.
#include "jitreader/name_fields.h"

namespace korvane_3_10 {

NameFields NameFields::read(FieldReader& in, bool stopAfterModule) {
    NameFields names;
    names.moduleName = in.countedString();
    names.architecture = in.u16();
    if (stopAfterModule)
        return names;
    names.methodName = in.countedString();
    names.className = in.countedString();
    names.sourceFileName = in.countedString();
    return names;
}

} // namespace korvane_3_10
