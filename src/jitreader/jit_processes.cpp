// The smallest front end: which process ids have trace files.
#include "jitreader/jit_processes.h"

#include "jitreader/front_end_set_up.h"
#include "jitreader/logging.h"

#include <exception>

KORVANE_DEFINE_FILE_LOGGER()

namespace korvane_3_10 {

skeinkit2::generic_iterator_t<u32_t> JitProcesses::getJitProcessId() const {
    // The list is built at the first call, as long as the processes: memory may run out.
    try {
        return m_jitFilesManager.getJitPidArray();
    } catch (const std::exception& error) {
        KORVANE_LOG_ERROR("Couldn't list the process ids: " << error.what());
        return skeinkit2::generic_iterator_t<u32_t>();
    }
}

korvane_error_t JitProcesses::initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths) {
    return m_jitFilesManager.initialize(paths, taAny);
}

boost::intrusive_ptr<IJitProcesses> IJitProcesses::create(skeinkit2::generic_iterator_t<const char*>& paths) {
    return JitProcesses::create(paths);
}

boost::intrusive_ptr<JitProcesses> JitProcesses::create(skeinkit2::generic_iterator_t<const char*>& paths) {
    boost::intrusive_ptr<JitProcesses> processes;
    const bool made = setUpFrontEnd("process list", [&] {
        processes.reset(new JitProcesses());
        return processes->initializeJitFiles(paths);
    });
    return made ? processes : nullptr;
}

} // namespace korvane_3_10
