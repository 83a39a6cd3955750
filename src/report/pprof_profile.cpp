// The report as a gzipped pprof profile: one Location per resolved address, its
// inlined methods as extra Lines of that Location, innermost first.
#include "pprof_profile.h"

#include <google/protobuf/arena.h>

#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace korvane_report {

namespace {

// zlib's window bits for a gzip wrapper around the deflate stream.
const int kGzipWindowBits = 15 + 16;

// The fastest level: a profile is written once and read a few times, and pays more
// for compression time than for size.
bool gzip(const std::string& data, std::string& packed) {
    z_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, kGzipWindowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return false;
    packed.resize(deflateBound(&stream, static_cast<uLong>(data.size())));
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(&packed[0]);
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return result == Z_STREAM_END;
}

} // namespace

PprofProfile::PprofProfile(const Report& report, perftools::profiles::Profile& profile)
    : m_report(report), m_profile(profile) {}

perftools::profiles::Profile PprofProfile::build(const Report& report) {
    perftools::profiles::Profile profile;
    fill(report, profile);
    return profile;
}

void PprofProfile::fill(const Report& report, perftools::profiles::Profile& profile) {
    PprofProfile builder(report, profile);
    builder.addSampleTypes();
    builder.addLocations();
    builder.addSamples();
    for (std::uint32_t id = 0; id < builder.m_strings.size(); ++id)
        profile.add_string_table(builder.m_strings.text(id));
}

bool PprofProfile::write(const Report& report, const std::string& path, std::string& problem) {
    // Made in an arena: the many small messages of a profile are allocated and freed at once.
    google::protobuf::Arena arena;
    perftools::profiles::Profile* profile =
        google::protobuf::Arena::CreateMessage<perftools::profiles::Profile>(&arena);
    fill(report, *profile);
    std::string packed;
    if (!gzip(profile->SerializeAsString(), packed)) {
        problem = "compressing the profile failed";
        return false;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(packed.data(), static_cast<std::streamsize>(packed.size()));
    if (file.flush())
        return true;
    problem = std::strerror(errno);
    return false;
}

void PprofProfile::addSampleTypes() {
    perftools::profiles::ValueType* samples = m_profile.add_sample_type();
    samples->set_type(stringId("samples"));
    samples->set_unit(stringId("count"));
    if (!m_report.hasPeriods())
        return;
    perftools::profiles::ValueType* cpu = m_profile.add_sample_type();
    cpu->set_type(stringId("cpu"));
    cpu->set_unit(stringId("nanoseconds"));
    m_profile.mutable_period_type()->CopyFrom(*cpu);
}

// Location ids are the report's location numbers plus one; pprof wants them non-zero.
void PprofProfile::addLocations() {
    const std::vector<Location>& locations = m_report.locations();
    for (std::size_t index = 0; index < locations.size(); ++index) {
        perftools::profiles::Location* location = m_profile.add_location();
        location->set_id(index + 1);
        location->set_address(locations[index].address);
        const std::vector<Frame>& frames = locations[index].frames;
        for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
            perftools::profiles::Line* line = location->add_line();
            line->set_function_id(function(*frame));
            line->set_line(frame->line);
        }
    }
}

void PprofProfile::addSamples() {
    const StackTable& stacks = m_report.stacks();
    for (std::uint32_t index = 0; index < stacks.size(); ++index) {
        const StackTable::Stack stack = stacks.stack(index);
        perftools::profiles::Sample* sample = m_profile.add_sample();
        sample->mutable_location_id()->Reserve(static_cast<int>(stack.depth));
        for (std::uint32_t depth = 0; depth < stack.depth; ++depth)
            sample->add_location_id(stack.locations[depth] + 1);
        sample->add_value(static_cast<std::int64_t>(stack.samples));
        if (m_report.hasPeriods())
            sample->add_value(static_cast<std::int64_t>(stack.period));
    }
}

std::uint64_t PprofProfile::function(const Frame& frame) {
    const auto key = std::make_pair(frame.name, frame.file);
    const auto found = m_functions.find(key);
    if (found != m_functions.end())
        return found->second;
    perftools::profiles::Function* added = m_profile.add_function();
    added->set_id(m_functions.size() + 1);
    added->set_name(stringId(m_report.strings().text(frame.name)));
    added->set_system_name(added->name());
    added->set_filename(stringId(m_report.strings().text(frame.file)));
    m_functions.emplace(key, added->id());
    return added->id();
}

} // namespace korvane_report
