// The smallest front end: which process ids have trace files.
#ifndef KORVANE_JITREADER_JIT_PROCESSES_H
#define KORVANE_JITREADER_JIT_PROCESSES_H

#include "jitreader/jit_files_manager.h"

namespace korvane_3_10 {

class JitProcesses : public IJitProcesses {
public:
    skeinkit2::generic_iterator_t<u32_t> getJitProcessId() const override;
    // Null when the directories can't be catalogued.
    static boost::intrusive_ptr<JitProcesses> create(skeinkit2::generic_iterator_t<const char*>& paths);

private:
    JitProcesses() = default;
    korvane_error_t initializeJitFiles(skeinkit2::generic_iterator_t<const char*>& paths);
    JitFilesManager m_jitFilesManager;
};

} // namespace korvane_3_10

#endif
