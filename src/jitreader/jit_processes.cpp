// The smallest front end: which process ids have trace files.
#include "jitreader/jit_processes.h"

namespace korvane_3_10 {

skeinkit2::generic_iterator_t<u32_t> JitProcesses::getJitProcessId() const {
    return m_jitFilesManager.getJitPidArray();
}

korvane_error_t JitProcesses::initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths) {
    return m_jitFilesManager.initialize(paths, taAny);
}

boost::intrusive_ptr<IJitProcesses> IJitProcesses::create(skeinkit2::generic_iterator_t<const char*>& paths) {
    boost::intrusive_ptr<JitProcesses> processes(new JitProcesses());
    if (processes->initializeJitFiles(paths) != meSuccess)
        return nullptr;
    return processes;
}

} // namespace korvane_3_10
