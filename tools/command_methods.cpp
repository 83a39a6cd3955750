// korvane-jit methods: every symbol of the traces with its names, module and code regions.
#include "argument_parser.h"
#include "command_registry.h"
#include "text_output.h"
#include "trace_directories.h"

namespace korvane_tool {

namespace {

using namespace korvane_3_10;

const char kSynopsis[] = "methods DIR... [--arch 32|64]";

std::string hostLabel(ISymbolResolver& resolver, u32_t hostId) {
    const char* name = nullptr;
    resolver.getHostNameById(hostId, &name);
    return std::to_string(hostId) + " \"" + text(name) + "\"";
}

void printRegion(ISymbolResolver& resolver, const ICodeRegion& region, std::ostream& out) {
    out << "    region  jit RVA [" << hexText(region.getStartJitRva()) << ", "
        << hexText(region.getStartJitRva() + region.getLength()) << ")  address ["
        << hexText(region.getStartVirtualAddress()) << ", "
        << hexText(region.getStartVirtualAddress() + region.getLength()) << ")  process " << region.getProcessId()
        << "  host " << hostLabel(resolver, region.getHostID()) << "  loaded " << region.getLoadTime();
    if (region.getUnloadTime() != 0)
        out << "  unloaded " << region.getUnloadTime();
    out << "\n";
}

void printSymbol(ISymbolResolver& resolver, const ISymbol& symbol, std::ostream& out) {
    const IModule::Ptr module = symbol.getModule();
    out << text(symbol.getQualifiedMethodName()) << "\n"
        << "    name       " << text(symbol.getMethodName()) << "\n"
        << "    class      " << text(symbol.getClassName()) << "\n"
        << "    module     " << (module ? text(module->getFilePath()) : std::string()) << "\n"
        << "    load time  " << symbol.getLoadTime() << "\n";
    for (auto regions = symbol.getRegions(); !regions.at_end(); regions.next())
        printRegion(resolver, *regions.current(), out);
}

bool readArch(const ArgumentParser& arguments, korvane_arch& arch, std::ostream& err) {
    const std::string value = arguments.value("--arch");
    if (value == "32" || value == "64") {
        arch = value == "32" ? arch_xa32 : arch_xa64;
        return true;
    }
    err << "korvane-jit: --arch wants 32 or 64, not '" << value << "'\n";
    return false;
}

int listMethods(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    ArgumentParser arguments({"--arch"}, {});
    int exitCode = 0;
    if (!arguments.parseDirectoryCommand(args, kSynopsis, out, err, exitCode))
        return exitCode;
    korvane_arch arch = arch_xa64;
    if (arguments.has("--arch") && !readArch(arguments, arch, err))
        return 2;

    const TraceDirectories directories(arguments.positional());
    const boost::intrusive_ptr<ISymbolResolver> resolver =
        arguments.has("--arch") ? directories.resolver(arch, err) : directories.resolver(err);
    if (!resolver)
        return 1;
    std::size_t count = 0;
    for (auto symbols = resolver->getSymbols(); !symbols.at_end(); symbols.next(), ++count)
        printSymbol(*resolver, *symbols.current(), out);
    out << countText(count, "method", "methods") << "\n";
    return 0;
}

const CommandRegistration registration(Command{
    "methods", kSynopsis,
    "Lists every method of the traces: names, class, module, load time and code regions "
    "(jit RVA and address ranges, process, host, load and unload time).",
    listMethods});

} // namespace

} // namespace korvane_tool
