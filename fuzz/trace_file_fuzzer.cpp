// Fuzz target: one whole trace file, read by a symbol resolver and queried
// through it and through a loader, as a profiler would.
#include "fuzz_support.h"
#include "trace_directories.h"

#include <korvane/jitreader.h>

#include <boost/filesystem/operations.hpp>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace korvane_3_10;
namespace fs = boost::filesystem;

const char kHost[] = "fuzz";
const u32_t kPid = 7;
// Enough to reach every kind of query; more would only repeat them.
const std::size_t kMaxSymbols = 32;
const int kMaxInlineDepth = 64;

struct Sample {
    u64_t time;
    address_t address;
};

// One directory for the whole run; kept alive past static destruction for the exit handler that removes it.
const fs::path& traceDirectory() {
    static const fs::path* const directory = [] {
        const fs::path* made = new fs::path(fs::temp_directory_path() / fs::unique_path("korvane-fuzz-%%%%-%%%%"));
        fs::create_directories(*made);
        std::atexit([] {
            boost::system::error_code ignored;
            fs::remove_all(traceDirectory(), ignored);
        });
        return made;
    }();
    return *directory;
}

void queryRegion(const ISymbol& symbol, ICodeRegion::Ptr region, std::vector<Sample>& samples) {
    const jit_rva_t rva = region->getStartJitRva() + region->getLength() / 2;
    samples.push_back({region->getLoadTime(), region->getStartVirtualAddress() + region->getLength() / 2});
    symbol.getSourceLocation(rva);
    korvane_line_number_entry first = {};
    korvane_line_number_entry last = {};
    symbol.getSourceRange(&first, &last, rva);
    if (const boost::shared_ptr<IByteBuffer> bytes = region->getBytes())
        bytes->size();
    for (int depth = 0; region && depth < kMaxInlineDepth; ++depth) {
        if (const ISymbol::Ptr inlined = region->getInlinedSymbol(rva))
            inlined->getSourceLocation(rva);
        region = region->getInlinedCodeRegion(rva);
    }
}

std::vector<Sample> querySymbols(ISymbolResolver& resolver) {
    std::vector<Sample> samples;
    std::size_t count = 0;
    for (auto symbols = resolver.getSymbols(); !symbols.at_end() && count < kMaxSymbols; symbols.next(), ++count) {
        const ISymbol::Ptr symbol = symbols.current();
        symbol->getQualifiedMethodName();
        symbol->getModule();
        symbol->getSourceFile();
        for (auto regions = symbol->getRegions(); !regions.at_end(); regions.next()) {
            queryRegion(*symbol, regions.current(), samples);
            resolver.getSymbol(regions.current()->getStartJitRva());
        }
    }
    resolver.getSymbol(0);
    resolver.getSymbol(~jit_rva_t(0));
    return samples;
}

void resolveSamples(IJitLoader& loader, std::vector<Sample> samples) {
    u32_t hostId = 0;
    loader.getHostIdByName(kHost, &hostId);
    samples.push_back({0, 0});
    samples.push_back({~u64_t(0), ~address_t(0)});
    for (const Sample& sample : samples) {
        jit_rva_t rva = 0;
        IModule::Ptr module;
        loader.resolveJitPoint(sample.time, sample.address, kPid, hostId, &rva, module);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    korvane_fuzz::silenceLibraryLog();
    const fs::path& directory = traceDirectory();
    std::ofstream(fs::path(directory / "fuzz.7.jit").string(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const korvane_tool::TraceDirectories directories({directory.string()});

    std::vector<Sample> samples;
    auto forResolver = directories.iterator();
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    if (const boost::intrusive_ptr<ISymbolResolver> resolver = ISymbolResolver::create(forResolver, noLocator))
        samples = querySymbols(*resolver);
    auto forLoader = directories.iterator();
    if (const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(forLoader))
        resolveSamples(*loader, samples);
    return 0;
}
