// The trace files of a set of directories, listed through the public API.
#include <korvane/interfaces.h>

#include "jitreader/front_end_set_up.h"
#include "jitreader/jit_files_manager.h"

namespace korvane_3_10 {

namespace {

void appendFiles(const JitFilesManager& catalogue, std::vector<TraceFileEntry>& files) {
    for (const auto& host : catalogue.processes()) {
        const ustring hostName = catalogue.getHostName(host.first);
        for (const auto& process : host.second) {
            for (const JitFilesManager::JitFileInfo& file : process.second.m_files)
                files.push_back(
                    TraceFileEntry{host.first, hostName, process.first, file.m_startJitRva, file.m_size, file.m_path});
        }
    }
}

} // namespace

korvane_error_t listTraceFiles(skeinkit2::generic_iterator_t<const char*>& paths, std::vector<TraceFileEntry>& files) {
    files.clear();
    JitFilesManager catalogue;
    // A scan that throws could not read the directories.
    korvane_error_t result = meFileNotOpen;
    const auto scan = [&]() {
        result = catalogue.initialize(paths, taAny);
        return result;
    };
    if (!setUpFrontEnd("trace file list", scan))
        return result;
    appendFiles(catalogue, files);
    return meSuccess;
}

} // namespace korvane_3_10
