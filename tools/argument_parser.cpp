// Splits a command's arguments into positional ones, options with a value, and flags.
#include "argument_parser.h"

#include <utility>

namespace korvane_tool {

ArgumentParser::ArgumentParser(std::set<std::string> valueOptions, std::set<std::string> flags)
    : m_valueOptions(std::move(valueOptions)), m_flags(std::move(flags)) {
    m_flags.insert("--help");
}

bool ArgumentParser::parse(const std::vector<std::string>& args, std::ostream& err) {
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            m_positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (m_flags.count(name) && equals == std::string::npos) {
            m_present.insert(name);
            continue;
        }
        if (!m_valueOptions.count(name)) {
            err << "unknown option '" << arg << "'\n";
            return false;
        }
        if (equals != std::string::npos) {
            m_values[name] = arg.substr(equals + 1);
        } else if (i + 1 < args.size()) {
            m_values[name] = args[++i];
        } else {
            err << "option '" << name << "' needs a value\n";
            return false;
        }
        m_present.insert(name);
    }
    return true;
}

bool ArgumentParser::parseCommand(const std::vector<std::string>& args, const std::string& usage, std::ostream& out,
                                  std::ostream& err, int& exitCode) {
    if (!parse(args, err)) {
        err << "Usage: korvane-jit " << usage << "\n";
        exitCode = 2;
        return false;
    }
    if (has("--help")) {
        out << "Usage: korvane-jit " << usage << "\n";
        exitCode = 0;
        return false;
    }
    return true;
}

bool ArgumentParser::parseDirectoryCommand(const std::vector<std::string>& args, const std::string& usage,
                                           std::ostream& out, std::ostream& err, int& exitCode) {
    if (!parseCommand(args, usage, out, err, exitCode))
        return false;
    if (!m_positional.empty())
        return true;
    err << "Usage: korvane-jit " << usage << "\n";
    exitCode = 2;
    return false;
}

bool ArgumentParser::has(const std::string& option) const { return m_present.count(option) != 0; }

std::string ArgumentParser::value(const std::string& option, const std::string& fallback) const {
    const auto found = m_values.find(option);
    return found == m_values.end() ? fallback : found->second;
}

} // namespace korvane_tool
