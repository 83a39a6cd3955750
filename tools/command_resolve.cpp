// korvane-jit resolve: the jit RVA, module, method, inlines and source line of each sample.
#include "argument_parser.h"
#include "command_registry.h"
#include "input_file.h"
#include "sample_file.h"
#include "text_output.h"
#include "trace_directories.h"

#include <memory>

namespace korvane_tool {

namespace {

using namespace korvane_3_10;

const char kSynopsis[] = "resolve DIR... --samples FILE [--json]";
const char kOutside[] = "outside JIT code";
// Inlines nest a few levels deep; this only stops a cycle in broken data.
const int kMaxDepth = 64;

struct Frame {
    std::string method;
    std::string sourceFile;
    u32_t line = 0; // 0: no line known
};

struct Resolution {
    korvane_error_t result = meNotFound;
    jit_rva_t jitRva = 0;
    std::string module;
    std::vector<Frame> frames; // outermost first
};

Frame frameOf(const ISymbol& symbol, jit_rva_t rva) {
    Frame frame;
    frame.method = text(symbol.getQualifiedMethodName());
    const ISourceLocation::Ptr location = symbol.getSourceLocation(rva);
    if (!location)
        return frame;
    frame.line = location->getLine();
    const ISourceFile::Ptr file = location->getSourceFile();
    if (file)
        frame.sourceFile = text(file->getSourceFileName());
    return frame;
}

ICodeRegion::Ptr regionHolding(const ISymbol& symbol, jit_rva_t rva) {
    for (auto regions = symbol.getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        if (region && rva >= region->getStartJitRva() && rva - region->getStartJitRva() < region->getLength())
            return region;
    }
    return ICodeRegion::Ptr();
}

// The method and, below it, each inline that holds the jit RVA.
std::vector<Frame> framesAt(ISymbolResolver& resolver, jit_rva_t rva) {
    std::vector<Frame> frames;
    const ISymbol::Ptr method = resolver.getSymbol(rva);
    if (!method)
        return frames;
    frames.push_back(frameOf(*method, rva));
    ICodeRegion::Ptr region = regionHolding(*method, rva);
    for (int depth = 0; region && depth < kMaxDepth; ++depth) {
        const ICodeRegion::Ptr inlined = region->getInlinedCodeRegion(rva);
        const ISymbol::Ptr symbol = region->getInlinedSymbol(rva);
        if (!inlined || !symbol)
            break;
        frames.push_back(frameOf(*symbol, rva));
        region = inlined;
    }
    return frames;
}

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
    resolution.frames = framesAt(resolver, resolution.jitRva);
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
        const Frame& frame = resolution.frames[depth];
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
            const Frame& frame = resolution.frames[depth];
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
    const boost::intrusive_ptr<IJitLoader> loader = directories.loader(err);
    const boost::intrusive_ptr<ISymbolResolver> resolver = loader ? directories.resolver(err) : nullptr;
    if (!resolver)
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
