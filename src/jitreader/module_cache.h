// One Module object for all records of a file that name the same module in the same way.
#ifndef KORVANE_JITREADER_MODULE_CACHE_H
#define KORVANE_JITREADER_MODULE_CACHE_H

#include "jitreader/module.h"

#include <string>
#include <unordered_map>

namespace korvane_3_10 {

// A module is never changed once made, so methods can share it: a file of a
// million methods names a handful of modules.
class ModuleCache {
public:
    Module::Ptr get(const std::string& filePath, korvane_error_t isBogus, korvane_arch architecture);

private:
    std::unordered_map<std::string, Module::Ptr> m_modules;
    // Records in a row mostly name the module of the record before: found without making a key.
    Module::Ptr m_last;
};

} // namespace korvane_3_10

#endif
