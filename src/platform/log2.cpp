// Component logging set-up over log4cplus.
#include "platform/log2.h"

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <mutex>
#include <set>

namespace ovrit_1 {
namespace log2 {

namespace {

std::mutex& configuredMutex() {
    static std::mutex mutex;
    return mutex;
}

std::set<std::string>& configuredNames() {
    static std::set<std::string> names;
    return names;
}

} // namespace

void configureComponentLogger(const std::string& name) {
    std::lock_guard<std::mutex> lock(configuredMutex());
    if (!configuredNames().insert(name).second)
        return;
    log4cplus::initialize();
    // An appender of our own keeps log4cplus from warning about a logger without
    // appenders; what the host configures still reaches its own appenders.
    log4cplus::SharedAppenderPtr silent(new log4cplus::NullAppender());
    silent->setName(LOG4CPLUS_TEXT("korvane-silent"));
    log4cplus::Logger logger = log4cplus::Logger::getInstance(name);
    logger.addAppender(silent);
    // The component's INFO and TRACE texts are costly diagnostics (whole method
    // reports with disassembly): unless the host has set a level for this
    // component, only warnings and errors are built and passed on.
    if (logger.getLogLevel() == log4cplus::NOT_SET_LOG_LEVEL)
        logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

} // namespace log2
} // namespace ovrit_1
