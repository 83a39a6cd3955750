// korvane-jit processes: hosts, processes and trace files of directories, with jit RVA ranges.
#include "argument_parser.h"
#include "command_registry.h"
#include "text_output.h"
#include "trace_directories.h"

namespace korvane_tool {

namespace {

using korvane_3_10::TraceFileEntry;

const char kSynopsis[] = "processes DIR...";

struct Totals {
    std::size_t hosts = 0;
    std::size_t processes = 0;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

typedef std::vector<TraceFileEntry>::const_iterator FileWalk;

// The files from first on that belong to the same process of the same host.
FileWalk processEnd(FileWalk first, FileWalk end) {
    FileWalk next = first;
    while (next != end && next->hostId == first->hostId && next->pid == first->pid)
        ++next;
    return next;
}

void printProcess(FileWalk first, FileWalk end, std::ostream& out, Totals& totals) {
    const std::size_t files = static_cast<std::size_t>(end - first);
    out << "  process " << first->pid << ", " << countText(files, "file", "files") << "\n";
    for (FileWalk file = first; file != end; ++file) {
        out << "    jit RVA [" << hexText(file->startJitRva, HexZero::bare) << ", "
            << hexText(file->startJitRva + file->size, HexZero::bare) << ")  " << file->size << " bytes  "
            << file->path << "\n";
        totals.bytes += file->size;
    }
    ++totals.processes;
    totals.files += files;
}

int listProcesses(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({}, {});
    int exitCode = 0;
    if (!arguments.parseDirectoryCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    const TraceDirectories directories(arguments.positional());
    std::vector<TraceFileEntry> files;
    if (!directories.listFiles(files, err))
        return 1;

    Totals totals;
    for (FileWalk first = files.begin(); first != files.end();) {
        if (first == files.begin() || first->hostId != (first - 1)->hostId) {
            out << "host " << first->hostId << " \"" << first->hostName << "\"\n";
            ++totals.hosts;
        }
        const FileWalk end = processEnd(first, files.end());
        printProcess(first, end, out, totals);
        first = end;
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
