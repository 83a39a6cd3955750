// The options of the JVM agent, as given after "=" in -agentpath or JVMTI.agent_load.
#include "agent_options.h"

#include <sstream>
#include <unistd.h>

namespace korvane_jvmagent {

namespace {

std::string machineHostName() {
    char name[256] = {};
    if (::gethostname(name, sizeof(name) - 1) != 0 || name[0] == '\0')
        return "localhost";
    return name;
}

} // namespace

std::unique_ptr<AgentOptions> AgentOptions::create(const char* text, std::string& problem) {
    std::unique_ptr<AgentOptions> options(new AgentOptions());
    std::istringstream items(text ? text : "");
    std::string option;
    while (std::getline(items, option, ','))
        if (!option.empty() && !options->take(option, problem))
            return nullptr;
    if (options->m_directory.empty()) {
        problem = "the option dir=RESULT_DIR is missing";
        return nullptr;
    }
    if (options->m_host.empty())
        options->m_host = machineHostName();
    return options;
}

bool AgentOptions::take(const std::string& option, std::string& problem) {
    if (option == "verbose") {
        m_verbose = true;
        return true;
    }
    const std::size_t equals = option.find('=');
    const std::string key = option.substr(0, equals);
    std::string* target = key == "dir"       ? &m_directory
                          : key == "host"    ? &m_host
                          : key == "jvmview" ? &m_jvmViewPath
                                             : nullptr;
    if (!target || equals == std::string::npos) {
        problem = "unknown option '" + option + "' (known: dir=PATH, host=NAME, verbose)";
        return false;
    }
    const std::string value = option.substr(equals + 1);
    if (value.empty()) {
        problem = "the option " + key + "= needs a value";
        return false;
    }
    if (target == &m_host && value.find('/') != std::string::npos) {
        problem = "host= takes a name without '/'";
        return false;
    }
    *target = value;
    return true;
}

} // namespace korvane_jvmagent
