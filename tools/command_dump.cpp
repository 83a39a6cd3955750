// korvane-jit dump: the full report of methods, disassembly included.
#include "argument_parser.h"
#include "command_registry.h"
#include "text_output.h"
#include "trace_directories.h"

namespace korvane_tool {

namespace {

using namespace korvane_3_10;

const char kSynopsis[] = "dump DIR... [--method TEXT] [--rva N]";

bool nameMatches(const ISymbol& symbol, const std::string& text) {
    const char* name = symbol.getQualifiedMethodName();
    return text.empty() || (name && std::string(name).find(text) != std::string::npos);
}

int dumpMethods(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({"--method", "--rva"}, {});
    int exitCode = 0;
    if (!arguments.parseDirectoryCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    std::uint64_t rva = 0;
    if (arguments.has("--rva") && !parseNumber(arguments.value("--rva"), rva)) {
        err << "korvane-jit: --rva wants a number, decimal or 0x-hex, not '" << arguments.value("--rva") << "'\n";
        return 2;
    }

    const TraceDirectories directories(arguments.positional());
    const boost::intrusive_ptr<ISymbolResolver> resolver = directories.resolver(err);
    if (!resolver)
        return 1;
    const ISymbol::Ptr atRva = arguments.has("--rva") ? resolver->getSymbol(rva) : ISymbol::Ptr();
    std::size_t count = 0;
    for (auto symbols = resolver->getSymbols(); !symbols.at_end(); symbols.next()) {
        const ISymbol::Ptr symbol = symbols.current();
        if ((arguments.has("--rva") && symbol != atRva) || !nameMatches(*symbol, arguments.value("--method")))
            continue;
        if (writeSymbolReport(*symbol, out) != meSuccess)
            continue;
        out << "\n";
        ++count;
    }
    out << countText(count, "method", "methods") << "\n";
    return 0;
}

const CommandRegistration registration(Command{
    "dump", kSynopsis,
    "Prints the full report of the methods whose name holds TEXT, or that hold the jit RVA N, "
    "disassembly included; all methods without either option.",
    dumpMethods});

} // namespace

} // namespace korvane_tool
