// Splits a command's arguments into positional ones, options with a value, and flags.
#ifndef KORVANE_TOOLS_ARGUMENT_PARSER_H
#define KORVANE_TOOLS_ARGUMENT_PARSER_H

#include "report/input_text.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace korvane_tool {

class ArgumentParser {
public:
    // Options are named with their dashes, e.g. "--arch"; "--help" is always known.
    ArgumentParser(std::set<std::string> valueOptions, std::set<std::string> flags);

    // Accepts "--name value" and "--name=value"; "--" ends the options.
    // Reports the first problem on err and returns false.
    bool parse(const std::vector<std::string>& args, std::ostream& err);

    // As parse, for a command: answers --help with the usage on out, and reports
    // problems with the usage on err. False means the command ends with exitCode.
    bool parseCommand(const std::vector<std::string>& args, const std::string& usage, std::ostream& out,
                      std::ostream& err, int& exitCode);
    // As parseCommand, for a command that wants at least one directory.
    bool parseDirectoryCommand(const std::vector<std::string>& args, const std::string& usage, std::ostream& out,
                               std::ostream& err, int& exitCode);

    const std::vector<std::string>& positional() const { return m_positional; }
    bool has(const std::string& option) const;
    // The last value given for the option, or the fallback.
    std::string value(const std::string& option, const std::string& fallback = std::string()) const;

private:
    std::set<std::string> m_valueOptions;
    std::set<std::string> m_flags;
    std::vector<std::string> m_positional;
    std::map<std::string, std::string> m_values;
    std::set<std::string> m_present;
};

using korvane_report::parseNumber;

} // namespace korvane_tool

#endif
