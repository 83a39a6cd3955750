// A runtime's name for a piece of code, split into function and source file where it holds both.
#ifndef KORVANE_JITDUMP_RUNTIME_NAME_H
#define KORVANE_JITDUMP_RUNTIME_NAME_H

#include <string_view>

namespace korvane_jitdump {

class RuntimeName {
public:
    // Node.js writes "JS:*walk /srv/app.js:12:5"; names of any other shape stay as written.
    static RuntimeName create(std::string_view written);

    // Views into the name given to create, or into a constant text.
    std::string_view method() const { return m_method; }
    std::string_view sourceFile() const { return m_sourceFile; }

private:
    RuntimeName(std::string_view method, std::string_view sourceFile);

    std::string_view m_method;
    std::string_view m_sourceFile;
};

} // namespace korvane_jitdump

#endif
