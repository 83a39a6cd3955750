// A runtime's name for a piece of code, split into function and source file where it holds both.
#ifndef KORVANE_JITDUMP_RUNTIME_NAME_H
#define KORVANE_JITDUMP_RUNTIME_NAME_H

#include <string>

namespace korvane_jitdump {

class RuntimeName {
public:
    // Node.js writes "JS:*walk /srv/app.js:12:5"; names of any other shape stay as written.
    static RuntimeName create(const std::string& written);

    const std::string& method() const { return m_method; }
    const std::string& sourceFile() const { return m_sourceFile; }

private:
    RuntimeName(std::string method, std::string sourceFile);

    std::string m_method;
    std::string m_sourceFile;
};

} // namespace korvane_jitdump

#endif
