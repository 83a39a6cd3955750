// What the fuzz targets share: the library's log kept off.
#ifndef KORVANE_FUZZ_FUZZ_SUPPORT_H
#define KORVANE_FUZZ_FUZZ_SUPPORT_H

#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

namespace korvane_fuzz {

// Fuzzing looks for faults: messages nobody reads would only slow it down.
inline void silenceLibraryLog() {
    static const bool silenced = [] {
        log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("korvane.jitreader")).setLogLevel(log4cplus::OFF_LOG_LEVEL);
        return true;
    }();
    (void)silenced;
}

} // namespace korvane_fuzz

#endif
