// korvane-jit resolve: the jit RVA, module, method, inlines and source line of each sample.
#include "argument_parser.h"
#include "command_registry.h"
#include "input_file.h"
#include "lasting_objects.h"
#include "resolved_sample_writer.h"
#include "sample_table.h"
#include "trace_directories.h"

#include <memory>

namespace korvane_tool {

namespace {

const char kSynopsis[] = "resolve DIR... --samples FILE [--json]";

bool readSamples(const std::string& path, SampleTable& samples, std::ostream& err) {
    const std::unique_ptr<InputFile> file = InputFile::create(path, err);
    if (!file)
        return false;
    samples = SampleTable::create(file->text(), path == "-" ? "stdin" : path, err);
    return samples.allRead();
}

int resolveSamples(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({"--samples"}, {"--json"});
    int exitCode = 0;
    if (!arguments.parseCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    if (arguments.positional().empty() || !arguments.has("--samples")) {
        err << "Usage: korvane-jit " << kSynopsis << "\n";
        return 2;
    }
    const std::string samplePath = arguments.value("--samples");
    SampleTable samples;
    const bool allRead = readSamples(samplePath, samples, err);
    if (samples.samples().empty()) {
        // Nothing to resolve is most likely the wrong file: say so rather than print an empty table.
        if (allRead)
            err << "korvane-jit: " << samplePath << ": no samples\n";
        return 1;
    }

    const TraceDirectories directories(arguments.positional());
    const boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver = directories.resolver(err);
    if (!resolver)
        return 1;

    std::unique_ptr<ResolvedSampleWriter> writer(
        new ResolvedSampleWriter(*resolver, samples.hosts(), arguments.has("--json"), out));
    const bool allAnswered = writer->write(samples.samples());
    writer->flush();
    LastingObjects::handOver(writer);
    LastingObjects::handOver(resolver);
    return allRead && allAnswered ? 0 : 1;
}

const CommandRegistration registration(Command{
    "resolve", kSynopsis,
    "Resolves the samples of a CSV file (timestamp,ip,pid,host): jit RVA, module, method, the inlines "
    "from outermost to innermost, source file and line. CSV, or JSON Lines with --json.",
    resolveSamples});

} // namespace

} // namespace korvane_tool
