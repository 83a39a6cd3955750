// korvane-jit symbol: the method and source line of jit RVAs.
#include "argument_parser.h"
#include "command_registry.h"
#include "text_output.h"
#include "trace_directories.h"

namespace korvane_tool {

namespace {

using namespace korvane_3_10;

const char kSynopsis[] = "symbol DIR... RVA...";

std::string sourceText(const ISymbol& symbol, jit_rva_t rva) {
    const ISourceLocation::Ptr location = symbol.getSourceLocation(rva);
    if (!location)
        return "no source line";
    const ISourceFile::Ptr file = location->getSourceFile();
    const std::string name = file ? text(file->getSourceFileName()) : std::string();
    return (name.empty() ? std::string("line ") : name + ":") + std::to_string(location->getLine());
}

// Directories first; the numbers at the end are jit RVAs.
bool splitArguments(const std::vector<std::string>& positional, std::vector<std::string>& directories,
                    std::vector<jit_rva_t>& rvas, std::ostream& err) {
    std::size_t first = positional.size();
    for (std::size_t i = positional.size(); i > 0; --i) {
        std::uint64_t number = 0;
        if (!parseNumber(positional[i - 1], number))
            break;
        first = i - 1;
    }
    directories.assign(positional.begin(), positional.begin() + first);
    for (std::size_t i = first; i < positional.size(); ++i) {
        rvas.push_back(0);
        parseNumber(positional[i], rvas.back());
    }
    if (!directories.empty() && !rvas.empty())
        return true;
    err << "Usage: korvane-jit " << kSynopsis << "\n"
        << (directories.empty() ? "  no directory given (a directory named like a number can be given as ./NAME)\n"
                                : "  no jit RVA given, decimal or 0x-hex\n");
    return false;
}

int showSymbols(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({}, {});
    int exitCode = 0;
    if (!arguments.parseCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    std::vector<std::string> paths;
    std::vector<jit_rva_t> rvas;
    if (!splitArguments(arguments.positional(), paths, rvas, err))
        return 2;

    const TraceDirectories directories(paths);
    const boost::intrusive_ptr<ISymbolResolver> resolver = directories.resolver(err);
    if (!resolver)
        return 1;
    for (jit_rva_t rva : rvas) {
        out << "jit RVA " << hexText(rva) << ": ";
        const ISymbol::Ptr symbol = resolver->getSymbol(rva);
        if (!symbol) {
            out << "no method\n";
            continue;
        }
        out << text(symbol->getQualifiedMethodName()) << "  " << sourceText(*symbol, rva) << "\n";
    }
    return 0;
}

const CommandRegistration registration(Command{
    "symbol", kSynopsis, "Tells the method and the source line of each jit RVA.", showSymbols});

} // namespace

} // namespace korvane_tool
