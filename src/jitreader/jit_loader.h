// The lazy front end: decodes a process at its first sample, modules only.
#ifndef KORVANE_JITREADER_JIT_LOADER_H
#define KORVANE_JITREADER_JIT_LOADER_H

#include "jitreader/jit_data_manager.h"
#include "jitreader/jit_files_manager.h"

namespace korvane_3_10 {

class JitLoader : public IJitLoader {
public:
    korvane_error_t getHostIdByName(const char* hostName, u32_t* hostId) const override;
    korvane_error_t resolveJitPoint(u64_t timestamp, address_t address, u32_t pid, u32_t hostId, jit_rva_t* jitRva,
                                    IModule::Ptr& module) override;
    boost::intrusive_ptr<IModuleEvaluator> getModuleEvaluator(const char* modulePath) const override;

    // Null when the directories can't be catalogued.
    static boost::intrusive_ptr<JitLoader> create(skeinkit2::generic_iterator_t<const char*>& paths);

private:
    JitLoader() = default;
    korvane_error_t initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths);
    korvane_error_t resolveSample(u64_t timestamp, address_t address, u32_t pid, u32_t hostId, jit_rva_t* jitRva,
                                  IModule::Ptr& module);

    JitDataManager m_jitDataManager;
    JitFilesManager m_jitFilesManager;
};

} // namespace korvane_3_10

#endif
