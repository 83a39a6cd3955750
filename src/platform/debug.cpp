// Assertion reports that return to the caller.
#include "platform/debug.h"

#include "platform/log2.h"

#include <log4cplus/logger.h>

#include <atomic>
#include <sstream>

namespace TOBREK_2_18 {
namespace debug {

namespace {

std::atomic<unsigned long> g_reportCount(0);

log4cplus::Logger& assertionLogger() {
    static log4cplus::Logger logger = [] {
        ovrit_1::log2::configureComponentLogger("korvane.jitreader");
        return log4cplus::Logger::getInstance("korvane.jitreader");
    }();
    return logger;
}

} // namespace

unsigned long assertionReportCount() { return g_reportCount.load(); }

namespace _private {

void ____________________ASSERT____________________(const char* condition, const char* file, unsigned line,
                                                    const char* function) {
    ++g_reportCount;
    log4cplus::Logger& logger = assertionLogger();
    if (!logger.isEnabledFor(log4cplus::ERROR_LOG_LEVEL))
        return;
    std::ostringstream text;
    text << "Assertion failed: " << (condition ? condition : "") << " in " << (function ? function : "")
         << ", at file: " << (file ? file : "") << ":" << line;
    logger.forcedLog(log4cplus::ERROR_LOG_LEVEL, text.str(), file, static_cast<int>(line), function);
}

} // namespace _private
} // namespace debug
} // namespace TOBREK_2_18
