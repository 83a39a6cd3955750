// One Module object for all records of a file that name the same module in the same way.
#include "jitreader/module_cache.h"

namespace korvane_3_10 {

Module::Ptr ModuleCache::get(const std::string& filePath, korvane_error_t isBogus, korvane_arch architecture) {
    if (m_last && m_last->isBogus() == isBogus && m_last->getArchitecture() == architecture &&
        filePath == m_last->getFilePath())
        return m_last;
    // The numbers go first: they end at the colon, and the path, whatever it holds, follows.
    const std::string key = std::to_string(static_cast<int>(isBogus)) + "," +
                            std::to_string(static_cast<unsigned>(architecture)) + ":" + filePath;
    Module::Ptr& module = m_modules[key];
    if (!module)
        module.reset(new Module(filePath, isBogus, architecture));
    m_last = module;
    return module;
}

} // namespace korvane_3_10
