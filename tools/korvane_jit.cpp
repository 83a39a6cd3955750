// korvane-jit: inspects .jit traces and resolves samples against them.
#include "command_registry.h"
#include "lasting_objects.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

namespace {

const char kLogLevelOption[] = "--log-level";

// Words of a description on lines of at most 80 columns, behind an indent.
void printWrapped(const std::string& text, std::ostream& out) {
    const std::string indent = "      ";
    const std::size_t width = 80;
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) {
        if (!line.empty() && indent.size() + line.size() + 1 + word.size() > width) {
            out << indent << line << "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    if (!line.empty())
        out << indent << line << "\n";
}

void printHelp(std::ostream& out) {
    out << "Usage: korvane-jit [--log-level LEVEL] COMMAND [ARGS...]\n\n"
           "Reads the .jit trace files that JIT profiling agents write and answers\n"
           "what the library answers a profiler.\n\nCommands:\n";
    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        out << "  " << command.synopsis << "\n";
        printWrapped(command.description, out);
    }
    out << "\nOptions:\n"
           "  --log-level LEVEL\n"
           "      What the library logs on stderr: TRACE, DEBUG, INFO, WARN (default),\n"
           "      ERROR, FATAL or OFF.\n"
           "  --help\n"
           "      Shows this text; COMMAND --help shows the usage of one command.\n";
}

// Takes "--log-level X" or "--log-level=X" out of the arguments, wherever it stands.
bool takeLogLevel(std::vector<std::string>& args, std::string& level) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == kLogLevelOption) {
            if (i + 1 == args.size())
                return false;
            level = args[i + 1];
            args.erase(args.begin() + i, args.begin() + i + 2);
            return true;
        }
        if (args[i].compare(0, sizeof(kLogLevelOption), std::string(kLogLevelOption) + "=") == 0) {
            level = args[i].substr(sizeof(kLogLevelOption));
            args.erase(args.begin() + i);
            return true;
        }
    }
    return true;
}

// Library messages about broken traces go to stderr from the given level on.
bool configureLogging(const std::string& levelName) {
    static const std::map<std::string, log4cplus::LogLevel> levels = {
        {"TRACE", log4cplus::TRACE_LOG_LEVEL}, {"DEBUG", log4cplus::DEBUG_LOG_LEVEL},
        {"INFO", log4cplus::INFO_LOG_LEVEL},   {"WARN", log4cplus::WARN_LOG_LEVEL},
        {"ERROR", log4cplus::ERROR_LOG_LEVEL}, {"FATAL", log4cplus::FATAL_LOG_LEVEL},
        {"OFF", log4cplus::OFF_LOG_LEVEL}};
    std::string upper = levelName;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    const auto level = levels.find(upper);
    if (level == levels.end())
        return false;
    log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true, true));
    console->setLayout(
        std::unique_ptr<log4cplus::Layout>(new log4cplus::PatternLayout(LOG4CPLUS_TEXT("%-5p %c: %m%n"))));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(console);
    root.setLogLevel(level->second);
    // The library keeps its component quiet unless told otherwise.
    log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("korvane.jitreader")).setLogLevel(level->second);
    return true;
}

int runCommand(const std::string& name, const std::vector<std::string>& args) {
    for (const korvane_tool::Command& command : korvane_tool::commands()) {
        if (command.name == name)
            return command.run(args, std::cout, std::cerr);
    }
    std::cerr << "korvane-jit: unknown command '" << name << "'; see korvane-jit --help\n";
    return 2;
}

// Ends the process once the command's output is out, without the teardown of static objects:
// the logging library would join the threads it started, and the system takes the memory
// back at once anyway. Under the address sanitizer the process ends as usual, so that its
// leak check runs.
int leave(int result) {
#if defined(__SANITIZE_ADDRESS__)
    return result;
#else
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    std::_Exit(result);
#endif
}

} // namespace

int main(int argc, char** argv) {
    log4cplus::Initializer logging;
    korvane_tool::LastingObjects::keepUntilExit();
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string level = "WARN";
    if (!takeLogLevel(args, level) || !configureLogging(level)) {
        std::cerr << "korvane-jit: " << kLogLevelOption
                  << " wants one of TRACE, DEBUG, INFO, WARN, ERROR, FATAL, OFF\n";
        return 2;
    }
    if (args.empty()) {
        printHelp(std::cerr);
        return 2;
    }
    const std::string name = args.front();
    if (name == "--help" || name == "-h" || name == "help") {
        printHelp(std::cout);
        return 0;
    }
    try {
        return leave(runCommand(name, std::vector<std::string>(args.begin() + 1, args.end())));
    } catch (const std::exception& error) {
        std::cerr << "korvane-jit: " << error.what() << "\n";
        return 1;
    }
}
