// korvane-jit processes: hosts, processes and trace files of directories, with jit RVA ranges.
#include "argument_parser.h"
#include "command_registry.h"
#include "text_output.h"
#include "trace_directories.h"

#include "jitreader/jit_files_manager.h"
#include "jitreader/logging.h"

namespace korvane_tool {

namespace {

using korvane_3_10::JitFilesManager;
using korvane_3_10::hex;

const char kSynopsis[] = "processes DIR...";

struct Totals {
    std::size_t hosts = 0;
    std::size_t processes = 0;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

void printProcess(korvane_3_10::u32_t pid, const JitFilesManager::ProcessJitInfo& process, std::ostream& out,
                  Totals& totals) {
    out << "  process " << pid << ", " << countText(process.m_files.size(), "file", "files") << "\n";
    for (const JitFilesManager::JitFileInfo& file : process.m_files) {
        out << "    jit RVA [" << hex(file.m_startJitRva) << ", " << hex(file.m_startJitRva + file.m_size) << ")  "
            << file.m_size << " bytes  " << file.m_path << "\n";
        totals.bytes += file.m_size;
    }
    ++totals.processes;
    totals.files += process.m_files.size();
}

int listProcesses(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({}, {});
    int exitCode = 0;
    if (!arguments.parseDirectoryCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    const TraceDirectories directories(arguments.positional());
    JitFilesManager catalogue;
    if (!directories.scan(catalogue, err))
        return 1;

    Totals totals;
    for (const auto& host : catalogue.processes()) {
        out << "host " << host.first << " \"" << catalogue.getHostName(host.first) << "\"\n";
        for (const auto& process : host.second)
            printProcess(process.first, process.second, out, totals);
        ++totals.hosts;
    }
    out << countText(totals.hosts, "host", "hosts") << ", " << countText(totals.processes, "process", "processes")
        << ", " << countText(totals.files, "file", "files") << ", " << countText(totals.bytes, "byte", "bytes") << "\n";
    return 0;
}

const CommandRegistration registration(Command{
    "processes", kSynopsis,
    "Lists hosts with their ids, their processes, and each trace file with size and jit RVA range.", listProcesses});

} // namespace

} // namespace korvane_tool
