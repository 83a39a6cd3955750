// korvane-jit import-jitdump: turns the jitdump files of runtimes into .jit traces.
#include "argument_parser.h"
#include "command_registry.h"
#include "lasting_objects.h"

#include "jitdump/jitdump_import.h"

#include <boost/filesystem/operations.hpp>

#include <unistd.h>

#include <climits>

namespace korvane_tool {

namespace {

using korvane_jitdump::JitdumpImport;

const char kSynopsis[] = "import-jitdump FILE... -o DIR [--host NAME] [--force]";
const char kOutput[] = "--output";

// "-o" is the one short option of the tool; the parser knows long ones only.
std::vector<std::string> withLongOutput(std::vector<std::string> args) {
    for (std::string& arg : args) {
        if (arg == "--")
            break;
        if (arg == "-o")
            arg = kOutput;
    }
    return args;
}

std::string thisHost() {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0')
        return "localhost";
    return name;
}

bool prepareDirectory(const std::string& directory, std::ostream& err) {
    boost::system::error_code error;
    boost::filesystem::create_directories(directory, error);
    if (!error && boost::filesystem::is_directory(directory, error))
        return true;
    err << "korvane-jit: " << directory << ": cannot make the output directory\n";
    return false;
}

bool importFile(const std::string& path, const std::string& directory, const std::string& host, bool force,
                std::ostream& out, std::ostream& err) {
    std::string problem;
    std::unique_ptr<JitdumpImport> import = JitdumpImport::create(path, problem);
    if (!import) {
        err << "korvane-jit: " << path << ": " << problem << "\n";
        return false;
    }
    const std::string target = (boost::filesystem::path(directory) / import->traceFileName(host)).string();
    boost::system::error_code error;
    if (!force && boost::filesystem::exists(target, error)) {
        err << "korvane-jit: " << target << " exists; --force overwrites it\n";
        return false;
    }
    // An old trace is removed rather than truncated: the file system then has no old
    // contents to flush on close, which truncating a file that had some asks of it.
    if (force)
        boost::filesystem::remove(target, error);
    if (!import->writeTo(target, problem)) {
        err << "korvane-jit: " << problem << "\n";
        return false;
    }
    out << path << ": " << import->summary() << " -> " << target << "\n";
    LastingObjects::handOver(import);
    return true;
}

int importJitdumps(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({kOutput, "--host"}, {"--force"});
    int exitCode = 0;
    if (!arguments.parseCommand(withLongOutput(args), kSynopsis, out, err, exitCode))
        return exitCode;
    const std::string host = arguments.value("--host", thisHost());
    if (arguments.positional().empty() || arguments.value(kOutput).empty() || host.empty() ||
        host.find('/') != std::string::npos) {
        err << "Usage: korvane-jit " << kSynopsis << "\n";
        return 2;
    }
    const std::string directory = arguments.value(kOutput);
    if (!prepareDirectory(directory, err))
        return 1;
    bool allImported = true;
    for (const std::string& path : arguments.positional())
        allImported = importFile(path, directory, host, arguments.has("--force"), out, err) && allImported;
    return allImported ? 0 : 1;
}

const CommandRegistration registration(Command{
    "import-jitdump", kSynopsis,
    "Writes DIR/HOST.PID.jit for each jitdump file (jit-PID.dump of Node.js --perf-prof and other runtimes), "
    "with one line per file on what it held. HOST defaults to this machine's name; existing traces are kept "
    "unless --force.",
    importJitdumps});

} // namespace

} // namespace korvane_tool
