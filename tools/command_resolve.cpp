// korvane-jit resolve: the jit RVA, module, method, inlines and source line of each sample.
#include "argument_parser.h"
#include "command_registry.h"
#include "input_file.h"
#include "text_output.h"
#include "trace_directories.h"

#include "report/inline_chain.h"
#include "report/sample_file.h"

#include <memory>

namespace korvane_tool {

namespace {

using namespace korvane_3_10;
using korvane_report::InlineChain;
using korvane_report::Sample;
using korvane_report::SampleFile;
using korvane_report::SourceFrame;

const char kSynopsis[] = "resolve DIR... --samples FILE [--json]";
const char kOutside[] = "outside JIT code";

struct Resolution {
    korvane_error_t result = meNotFound;
    jit_rva_t jitRva = 0;
    std::string module;
    std::vector<SourceFrame> frames; // outermost first
};

Resolution resolveSample(IJitLoader& loader, ISymbolResolver& resolver, const Sample& sample) {
    Resolution resolution;
    u32_t hostId = 0;
    loader.getHostIdByName(sample.host.c_str(), &hostId);
    IModule::Ptr module;
    resolution.result = loader.resolveJitPoint(sample.timestamp, sample.ip, sample.pid, hostId, &resolution.jitRva,
                                               module);
    if (resolution.result != meSuccess)
        return resolution;
    if (module)
        resolution.module = text(module->getFilePath());
    resolution.frames = InlineChain::at(resolver, resolution.jitRva);
    return resolution;
}

std::string outcome(const Resolution& resolution) {
    if (resolution.result == meSuccess)
        return "jit";
    if (resolution.result == meNotFound)
        return kOutside;
    return "trace not readable (result code " + std::to_string(resolution.result) + ")";
}

void writeCsvHeader(std::ostream& out) {
    out << "timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n";
}

void writeCsv(const Sample& sample, const Resolution& resolution, std::ostream& out) {
    const std::string head = std::to_string(sample.timestamp) + "," + hexText(sample.ip) + "," +
                             std::to_string(sample.pid) + "," + csvField(sample.host) + "," +
                             csvField(outcome(resolution)) + ",";
    if (resolution.result != meSuccess) {
        out << head << ",,,,,\n";
        return;
    }
    const std::string place = hexText(resolution.jitRva) + "," + csvField(resolution.module) + ",";
    if (resolution.frames.empty())
        out << head << place << ",,,\n";
    for (std::size_t depth = 0; depth < resolution.frames.size(); ++depth) {
        const SourceFrame& frame = resolution.frames[depth];
        out << head << place << depth << "," << csvField(frame.method) << "," << csvField(frame.sourceFile) << ","
            << (frame.line ? std::to_string(frame.line) : std::string()) << "\n";
    }
}

void writeJson(const Sample& sample, const Resolution& resolution, std::ostream& out) {
    out << "{\"timestamp\":" << sample.timestamp << ",\"ip\":" << jsonString(hexText(sample.ip))
        << ",\"pid\":" << sample.pid << ",\"host\":" << jsonString(sample.host)
        << ",\"result\":" << jsonString(outcome(resolution));
    if (resolution.result == meSuccess) {
        out << ",\"jit_rva\":" << jsonString(hexText(resolution.jitRva))
            << ",\"module\":" << jsonString(resolution.module) << ",\"frames\":[";
        for (std::size_t depth = 0; depth < resolution.frames.size(); ++depth) {
            const SourceFrame& frame = resolution.frames[depth];
            out << (depth ? "," : "") << "{\"method\":" << jsonString(frame.method) << ",\"source_file\":"
                << (frame.sourceFile.empty() ? "null" : jsonString(frame.sourceFile))
                << ",\"line\":" << (frame.line ? std::to_string(frame.line) : "null") << "}";
        }
        out << "]";
    }
    out << "}\n";
}

bool readSamples(const std::string& path, std::vector<Sample>& samples, std::ostream& err) {
    const std::unique_ptr<InputFile> file = InputFile::create(path, err);
    if (!file)
        return false;
    return SampleFile::read(file->stream(), path == "-" ? "stdin" : path, samples, err);
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
    std::vector<Sample> samples;
    const std::string samplePath = arguments.value("--samples");
    const bool allRead = readSamples(samplePath, samples, err);
    if (samples.empty()) {
        // Nothing to resolve is most likely the wrong file: say so rather than print an empty table.
        if (allRead)
            err << "korvane-jit: " << samplePath << ": no samples\n";
        return 1;
    }

    const TraceDirectories directories(arguments.positional());
    boost::intrusive_ptr<IJitLoader> loader;
    boost::intrusive_ptr<ISymbolResolver> resolver;
    if (!directories.frontEnds(loader, resolver, err))
        return 1;

    const bool json = arguments.has("--json");
    if (!json)
        writeCsvHeader(out);
    bool allAnswered = true;
    for (const Sample& sample : samples) {
        const Resolution resolution = resolveSample(*loader, *resolver, sample);
        allAnswered = allAnswered && (resolution.result == meSuccess || resolution.result == meNotFound);
        if (json)
            writeJson(sample, resolution, out);
        else
            writeCsv(sample, resolution, out);
    }
    return allRead && allAnswered ? 0 : 1;
}

const CommandRegistration registration(Command{
    "resolve", kSynopsis,
    "Resolves the samples of a CSV file (timestamp,ip,pid,host): jit RVA, module, method, the inlines "
    "from outermost to innermost, source file and line. CSV, or JSON Lines with --json.",
    resolveSamples});

} // namespace

} // namespace korvane_tool
