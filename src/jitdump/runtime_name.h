// The name a runtime gave a piece of code, split into function and source file where the runtime
// put both in it (Node.js: "JS:*walk /srv/app.js:12:5").
#ifndef KORVANE_JITDUMP_RUNTIME_NAME_H
#define KORVANE_JITDUMP_RUNTIME_NAME_H

#include <cstdint>
#include <string>

namespace korvane_jitdump {

class RuntimeName {
public:
    // Names that don't have the shape of a Node.js function name stay as written.
    static RuntimeName create(const std::string& written);

    const std::string& method() const { return m_method; }
    const std::string& sourceFile() const { return m_sourceFile; }
    std::uint32_t line() const { return m_line; } // 0: none in the name

private:
    RuntimeName(std::string method, std::string sourceFile, std::uint32_t line);

    std::string m_method;
    std::string m_sourceFile;
    std::uint32_t m_line;
};

} // namespace korvane_jitdump

#endif
