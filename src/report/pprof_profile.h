// The report as a gzipped pprof profile: one Location per resolved address, its
// inlined methods as extra Lines of that Location, innermost first.
#ifndef KORVANE_REPORT_PPROF_PROFILE_H
#define KORVANE_REPORT_PPROF_PROFILE_H

#include "report.h"

#include "profile.pb.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace korvane_report {

class PprofProfile {
public:
    static perftools::profiles::Profile build(const Report& report);
    // Writes the profile gzipped; false with the reason in problem.
    static bool write(const Report& report, const std::string& path, std::string& problem);

private:
    PprofProfile(const Report& report, perftools::profiles::Profile& profile);
    static void fill(const Report& report, perftools::profiles::Profile& profile);

    void addSampleTypes();
    void addLocations();
    void addSamples();
    std::uint64_t function(const Frame& frame);
    std::int64_t stringId(const std::string& text) { return m_strings.intern(text); }

    const Report& m_report;
    perftools::profiles::Profile& m_profile;
    StringTable m_strings;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint64_t> m_functions;
};

} // namespace korvane_report

#endif
