// The names that load and inline records share, read in the order both hold them.
#include "jitreader/name_fields.h"

namespace korvane_3_10 {

void NameFields::read(FieldReader& in, bool stopAfterModule, NameFields& names) {
    in.countedString(names.moduleName);
    names.architecture = in.u16();
    if (stopAfterModule) {
        names.methodName.clear();
        names.className.clear();
        names.sourceFileName.clear();
        return;
    }
    in.countedString(names.methodName);
    in.countedString(names.className);
    in.countedString(names.sourceFileName);
}

} // namespace korvane_3_10
