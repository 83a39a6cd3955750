// The subcommands of korvane-jit; each command_*.cpp registers its own.
#include "command_registry.h"

#include <algorithm>

namespace korvane_tool {

namespace {

std::vector<Command>& registry() {
    static std::vector<Command> all;
    return all;
}

} // namespace

CommandRegistration::CommandRegistration(Command command) {
    std::vector<Command>& all = registry();
    all.push_back(std::move(command));
    std::sort(all.begin(), all.end(), [](const Command& a, const Command& b) { return a.name < b.name; });
}

const std::vector<Command>& commands() { return registry(); }

} // namespace korvane_tool
