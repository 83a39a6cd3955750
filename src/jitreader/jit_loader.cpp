// The lazy front end: decodes a process at its first sample, modules only.
#include "jitreader/jit_loader.h"

#include "jitreader/front_end_set_up.h"
#include "jitreader/logging.h"
#include "jitreader/module_evaluator.h"

#include <exception>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

boost::intrusive_ptr<IJitLoader> IJitLoader::create(skeinkit2::generic_iterator_t<const char*>& paths) {
    return JitLoader::create(paths);
}

boost::intrusive_ptr<JitLoader> JitLoader::create(skeinkit2::generic_iterator_t<const char*>& paths) {
    boost::intrusive_ptr<JitLoader> loader;
    const bool made = setUpFrontEnd("jit loader", [&] {
        loader.reset(new JitLoader());
        return loader->initializeJitFiles(paths);
    });
    return made ? loader : nullptr;
}

korvane_error_t JitLoader::initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths) {
    const korvane_error_t scanned = m_jitFilesManager.initialize(paths, taAny);
    if (scanned != meSuccess)
        return scanned;
    // Every catalogued process gets its address table now, before any query:
    // decoding one process later then never reshapes a table that a query of
    // another process walks at the same time.
    for (const auto& host : m_jitFilesManager.processes())
        for (const auto& process : host.second)
            m_jitDataManager.createSingleRegionDomain(process.first, host.first);
    return meSuccess;
}

korvane_error_t JitLoader::getHostIdByName(const char* hostName, u32_t* hostId) const {
    if (!hostId)
        return meInvalidArgument;
    *hostId = m_jitFilesManager.getHostID(hostName);
    return meSuccess;
}

korvane_error_t JitLoader::resolveJitPoint(u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                                           jit_rva_t* jitRva, IModule::Ptr& module) {
    // A reading that throws has already been answered as a file that can't be
    // read; this only keeps whatever else may throw inside.
    try {
        return resolveSample(timestamp, address, pid, hostId, jitRva, module);
    } catch (const std::exception& error) {
        KORVANE_LOG_ERROR("Couldn't resolve a jit point of process " << pid << ": " << error.what());
        return meNotFound;
    }
}

korvane_error_t JitLoader::resolveSample(u64_t timestamp, address_t address, u32_t pid, u32_t hostId,
                                         jit_rva_t* jitRva, IModule::Ptr& module) {
    const korvane_error_t read = m_jitFilesManager.readJitFiles(pid, hostId, dmModulesOnly, m_jitDataManager);
    if (read != meSuccess)
        return read;
    JitDataManager::JitPoint point;
    // The data manager takes the address first and the time stamp second.
    const korvane_error_t resolved = m_jitDataManager.resolveJitPoint(address, timestamp, pid, hostId, point);
    if (resolved != meSuccess)
        return resolved;
    if (!point.method || point.jitRva == 0)
        return meNotFound;
    // Callers keep one pointer for their samples, most of them in one module: the same
    // module is not counted in again and out.
    if (module.get() != point.module)
        module = point.module;
    *jitRva = point.jitRva;
    return meSuccess;
}

boost::intrusive_ptr<IModuleEvaluator> JitLoader::getModuleEvaluator(const char* modulePath) const {
    if (!modulePath)
        return boost::intrusive_ptr<IModuleEvaluator>();
    return boost::intrusive_ptr<IModuleEvaluator>(new ModuleEvaluator(modulePath));
}

} // namespace korvane_3_10
