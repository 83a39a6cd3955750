// The options of the JVM agent, as given after "=" in -agentpath or JVMTI.agent_load.
#ifndef KORVANE_AGENTS_JVM_AGENT_OPTIONS_H
#define KORVANE_AGENTS_JVM_AGENT_OPTIONS_H

#include <memory>
#include <string>

namespace korvane_jvmagent {

class AgentOptions {
public:
    // Comma-separated: dir=PATH (required), host=NAME, verbose, and jvmview=PATH,
    // which writes the JVM's own view of each compiled method for tests to
    // compare with. Null with the reason in problem when the text is wrong.
    static std::unique_ptr<AgentOptions> create(const char* text, std::string& problem);

    const std::string& directory() const { return m_directory; }
    const std::string& host() const { return m_host; }
    bool verbose() const { return m_verbose; }
    const std::string& jvmViewPath() const { return m_jvmViewPath; }

private:
    AgentOptions() = default;
    bool take(const std::string& option, std::string& problem);

    std::string m_directory;
    std::string m_host;
    bool m_verbose = false;
    std::string m_jvmViewPath;
};

} // namespace korvane_jvmagent

#endif
