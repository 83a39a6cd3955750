// korvane-jit: inspects .jit traces and resolves samples against them.
#include "command_registry.h"

#include <iostream>

namespace {

void printHelp(std::ostream& out) {
    out << "Usage: korvane-jit COMMAND [ARGS...]\n\n"
           "Reads the .jit trace files that JIT profiling agents write and answers\n"
           "what the library answers a profiler.\n\nCommands:\n";
    for (const korvane_tool::Command& command : korvane_tool::commands())
        out << "  " << command.synopsis << "\n      " << command.description << "\n";
    out << "\n  --help\n      Shows this text.\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printHelp(std::cerr);
        return 2;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        printHelp(std::cout);
        return 0;
    }
    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        if (command.name == name)
            return command.run(std::vector<std::string>(argv + 2, argv + argc), std::cout, std::cerr);
    }
    std::cerr << "korvane-jit: unknown command '" << name << "'; see korvane-jit --help\n";
    return 2;
}
