// korvane-jit report: a profile of perf samples or a sample CSV, JIT frames resolved
// down to inlined methods and source lines: top table, folded stacks, pprof.
#include "argument_parser.h"
#include "command_registry.h"
#include "trace_directories.h"

#include "report/folded_stacks.h"
#include "report/pprof_profile.h"
#include "report/report.h"
#include "report/top_table.h"

#include <fstream>
#include <iostream>
#include <limits>

namespace korvane_tool {

namespace {

using namespace korvane_3_10;
using namespace korvane_report;

const char kSynopsis[] =
    "report DIR... [--input FILE] [--host NAME] [--top N] [--folded FILE] [--pprof FILE] [--strict]";
const std::uint64_t kDefaultRows = 20;

bool readInput(Report& report, const ArgumentParser& arguments, std::ostream& err) {
    const bool strict = arguments.has("--strict");
    if (!arguments.has("--input"))
        return report.read(std::cin, "<stdin>", strict, err);
    const std::string path = arguments.value("--input");
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        err << "korvane-jit: " << path << ": cannot open the input\n";
        return false;
    }
    return report.read(file, path, strict, err);
}

bool writeFolded(const Report& report, const std::string& path, std::ostream& err) {
    std::ofstream file(path, std::ios::trunc);
    FoldedStacks(report).write(file);
    if (file.flush())
        return true;
    err << "korvane-jit: " << path << ": cannot write the folded stacks\n";
    return false;
}

bool writePprof(const Report& report, const std::string& path, std::ostream& err) {
    std::string problem;
    if (PprofProfile::write(report, path, problem))
        return true;
    err << "korvane-jit: " << path << ": cannot write the profile: " << problem << "\n";
    return false;
}

bool writeViews(const Report& report, const ArgumentParser& arguments, std::uint64_t rows, std::ostream& out,
                std::ostream& err) {
    TopTable(report).write(out, static_cast<std::size_t>(rows));
    bool written = true;
    if (arguments.has("--folded"))
        written = writeFolded(report, arguments.value("--folded"), err) && written;
    if (arguments.has("--pprof"))
        written = writePprof(report, arguments.value("--pprof"), err) && written;
    return written;
}

int report(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({"--input", "--host", "--top", "--folded", "--pprof"}, {"--strict"});
    int exitCode = 0;
    if (!arguments.parseDirectoryCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    std::uint64_t rows = kDefaultRows;
    if (arguments.has("--top") && (!parseNumber(arguments.value("--top"), rows) || rows == 0)) {
        err << "korvane-jit: --top wants a positive number\n";
        return 2;
    }
    const TraceDirectories directories(arguments.positional());
    boost::intrusive_ptr<IJitLoader> loader;
    boost::intrusive_ptr<ISymbolResolver> resolver;
    if (!directories.frontEnds(loader, resolver, err))
        return 1;
    const std::string host = arguments.value("--host", FrameResolver::defaultHost(*resolver));
    const std::unique_ptr<Report> profile = Report::create(loader, resolver, host);
    if (!readInput(*profile, arguments, err))
        return 1;
    return writeViews(*profile, arguments, rows, out, err) ? 0 : 1;
}

const CommandRegistration registration(Command{
    "report", kSynopsis,
    "A profile of the samples of `perf script -F pid,tid,time,period,ip,sym,dso [--ns]` (with or without "
    "call chains; from stdin or --input) or of a sample CSV: the hottest methods and source lines with "
    "inlined methods marked (--top N rows, default 20), folded stacks for flame graphs (--folded) and a "
    "gzipped pprof profile (--pprof). perf samples belong to --host, by default the one host of the "
    "traces. --strict stops at the first line that can't be read.",
    report});

} // namespace

} // namespace korvane_tool
