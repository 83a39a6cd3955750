// The subcommands of korvane-jit; each command_*.cpp registers its own.
#ifndef KORVANE_TOOLS_COMMAND_REGISTRY_H
#define KORVANE_TOOLS_COMMAND_REGISTRY_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace korvane_tool {

struct Command {
    std::string name;
    std::string synopsis;    // e.g. "processes DIR..."
    std::string description; // one line for --help
    // Arguments after the command name; output to out, problems to err; returns the exit code.
    std::function<int(const std::vector<std::string>& args, std::ostream& out, std::ostream& err)> run;
};

// Registers at static initialisation; the tool lists commands by name.
struct CommandRegistration {
    explicit CommandRegistration(Command command);
};

const std::vector<Command>& commands();

} // namespace korvane_tool

#endif
