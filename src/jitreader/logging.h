// The library's logging conventions: one logger per source file, ENTER/EXIT
// scopes, messages built only when their level is on, and assertions.
#ifndef KORVANE_JITREADER_LOGGING_H
#define KORVANE_JITREADER_LOGGING_H

#include "platform/debug.h"
#include "platform/log2.h"

#include <log4cplus/logger.h>
#include <log4cplus/tracelogger.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <sstream>

namespace korvane_3_10 {

// Called once per source file at load time, through KORVANE_DEFINE_FILE_LOGGER.
inline log4cplus::Logger makeFileLogger() {
    ovrit_1::log2::configureComponentLogger("korvane.jitreader");
    return log4cplus::Logger::getInstance("korvane.jitreader");
}

// Streams a number as "0x..." in lower-case hex, and zero as "0", as the
// messages print them; the stream's own format is left alone.
struct Hex {
    std::uint64_t value;
};

inline Hex hex(std::uint64_t value) { return Hex{value}; }

inline std::ostream& operator<<(std::ostream& stream, Hex number) {
    if (number.value == 0)
        return stream << '0';
    const std::ios_base::fmtflags flags = stream.flags();
    stream << "0x" << std::hex << std::noshowbase << number.value;
    stream.flags(flags);
    return stream;
}

} // namespace korvane_3_10

#define KORVANE_DEFINE_FILE_LOGGER() \
    namespace { \
    const log4cplus::Logger g_fileLogger = ::korvane_3_10::makeFileLogger(); \
    }

// The scope object, and the text it copies, exist only while TRACE is on: the
// traced functions run once per record.
#define KORVANE_TRACE_SCOPE() \
    std::optional<log4cplus::TraceLogger> korvaneTraceScope_; \
    if (g_fileLogger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) \
    korvaneTraceScope_.emplace(g_fileLogger, __PRETTY_FUNCTION__, __FILE__, __LINE__, __func__)

#define KORVANE_LOG_AT(level, message) \
    do { \
        if (g_fileLogger.isEnabledFor(level)) { \
            std::ostringstream korvaneText_; \
            korvaneText_ << message; \
            g_fileLogger.forcedLog(level, korvaneText_.str(), __FILE__, __LINE__, __func__); \
        } \
    } while (0)

#define KORVANE_LOG_TRACE(message) KORVANE_LOG_AT(log4cplus::TRACE_LOG_LEVEL, message)
#define KORVANE_LOG_INFO(message) KORVANE_LOG_AT(log4cplus::INFO_LOG_LEVEL, message)
#define KORVANE_LOG_WARN(message) \
    KORVANE_LOG_AT(log4cplus::WARN_LOG_LEVEL, message << ", at file: " << __FILE__ << ":" << __LINE__)
#define KORVANE_LOG_ERROR(message) \
    KORVANE_LOG_AT(log4cplus::ERROR_LOG_LEVEL, message << ", at file: " << __FILE__ << ":" << __LINE__)

#define KORVANE_INFO_ENABLED() g_fileLogger.isEnabledFor(log4cplus::INFO_LOG_LEVEL)
#define KORVANE_TRACE_ENABLED() g_fileLogger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)

// Reports a condition that does not hold and goes on; nothing relies on it to stop.
#define KORVANE_ASSERT_TEXT(condition, text) \
    do { \
        if (!(condition)) \
            TOBREK_2_18::debug::_private::____________________ASSERT____________________(text, __FILE__, __LINE__, \
                                                                                         __PRETTY_FUNCTION__); \
    } while (0)

#define KORVANE_ASSERT(condition) KORVANE_ASSERT_TEXT(condition, #condition)

#endif
