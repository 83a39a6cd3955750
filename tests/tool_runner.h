// Runs a korvane-jit command in-process, as the tool would, and keeps what it printed.
#ifndef KORVANE_TESTS_TOOL_RUNNER_H
#define KORVANE_TESTS_TOOL_RUNNER_H

#include "command_registry.h"

#include <sstream>
#include <string>
#include <vector>

namespace korvane_test {

struct ToolRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline ToolRun runTool(const std::string& command, const std::vector<std::string>& args) {
    ToolRun run;
    for (const korvane_tool::Command& candidate : korvane_tool::commands()) {
        if (candidate.name != command)
            continue;
        std::ostringstream out;
        std::ostringstream err;
        run.exitCode = candidate.run(args, out, err);
        run.out = out.str();
        run.err = err.str();
    }
    return run;
}

} // namespace korvane_test

#endif
