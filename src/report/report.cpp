// A profile made from samples and .jit traces: reads perf script text or the
// sample CSV, resolves every frame, and keeps the distinct stacks for the views.
#include "report.h"

#include "prefixed_buffer.h"
#include "sample_file.h"

#include <sstream>

namespace korvane_report {

namespace {

// Enough of the input to find its first line.
const std::size_t kStart = 64 * 1024;

// The first line with content; both inputs may open with blank lines and '#' comments.
std::string firstLine(const std::string& start) {
    std::istringstream lines(start);
    std::string line;
    while (std::getline(lines, line)) {
        const std::size_t content = line.find_first_not_of(" \t\r");
        if (content != std::string::npos && line[content] != '#')
            return line;
    }
    return std::string();
}

bool inJit(location_outcome_t outcome) { return outcome == loResolved || outcome == loUnnamed; }

} // namespace

Report::Report(std::unique_ptr<FrameResolver> resolver, const std::string& host)
    : m_resolver(std::move(resolver)), m_host(m_resolver->host(host)) {}

std::unique_ptr<Report> Report::create(boost::intrusive_ptr<korvane_3_10::IJitLoader> loader,
                                       boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolver,
                                       const std::string& host) {
    std::unique_ptr<FrameResolver> frames = FrameResolver::create(std::move(loader), std::move(resolver));
    if (!frames)
        return nullptr;
    return std::unique_ptr<Report>(new Report(std::move(frames), host));
}

bool Report::read(std::istream& in, const std::string& name, bool strict, std::ostream& err) {
    std::string start(kStart, '\0');
    in.read(&start[0], static_cast<std::streamsize>(start.size()));
    start.resize(static_cast<std::size_t>(in.gcount()));
    const bool read = SampleFile::isHeader(firstLine(start)) ? readSampleFile(in, start, name, strict, err)
                                                             : readPerfScript(in, start, name, strict, err);
    m_stacks.flush();
    if (read && m_stacks.size() == 0) {
        err << name << ": no samples\n";
        return false;
    }
    return read;
}

bool Report::readPerfScript(std::istream& in, const std::string& start, const std::string& name, bool strict,
                            std::ostream& err) {
    PerfScriptParser parser(*this, strict);
    parser.feed(start);
    parser.read(in);
    if (parser.badLines() == 0)
        return true;
    err << name << ":" << parser.firstBadLine() << ": not a line of perf script -F pid,tid,time,period,ip,sym,dso";
    if (parser.stopped()) {
        err << "; reading stopped (--strict): " << parser.firstBadText() << "\n";
        return false;
    }
    err << " (" << parser.badLines() << (parser.badLines() == 1 ? " such line" : " such lines")
        << " skipped, this the first): " << parser.firstBadText() << "\n";
    return true;
}

bool Report::readSampleFile(std::istream& in, const std::string& start, const std::string& name, bool strict,
                            std::ostream& err) {
    PrefixedBuffer buffer(start, in.rdbuf());
    std::istream whole(&buffer);
    std::vector<Sample> samples;
    if (!SampleFile::read(whole, name, samples, err) && strict) {
        err << name << ": reading stopped (--strict)\n";
        return false;
    }
    m_allPeriods = false;
    for (const Sample& sample : samples) {
        m_resolver->beginSample(m_resolver->host(sample.host), sample.pid, sample.timestamp);
        m_current.assign(1, m_resolver->locate(sample.ip, true, std::string_view()));
        m_stacks.add(m_current, 0);
    }
    return true;
}

// The cache loads of all frames start before the first lookup waits for one, and
// go on while the previous sample's stack is counted.
void Report::sample(const PerfSampleHead& head, const std::vector<PerfFrame>& frames) {
    m_resolver->beginSample(m_host, head.pid, head.time);
    m_allPeriods = m_allPeriods && head.hasPeriod;
    for (std::size_t depth = 0; depth < frames.size(); ++depth)
        m_resolver->prefetch(frames[depth].ip, depth == 0);
    m_stacks.flush();
    m_current.clear();
    for (const PerfFrame& frame : frames)
        m_current.push_back(m_resolver->locate(frame.ip, m_current.empty(), frame.text));
    m_stacks.add(m_current, head.period);
}

SampleCounts Report::counts() const {
    SampleCounts counts;
    const std::vector<Location>& locations = m_resolver->locations();
    for (std::uint32_t index = 0; index < m_stacks.size(); ++index) {
        const StackTable::Stack stack = m_stacks.stack(index);
        const location_outcome_t leaf = locations[stack.locations[0]].outcome;
        counts.samples += stack.samples;
        counts.inJit += inJit(leaf) ? stack.samples : 0;
        counts.resolved += leaf == loResolved ? stack.samples : 0;
        counts.outside += inJit(leaf) ? 0 : stack.samples;
        counts.untraced += leaf == loUntraced ? stack.samples : 0;
        counts.frames += stack.depth * stack.samples;
        for (std::uint32_t depth = 0; depth < stack.depth; ++depth) {
            const location_outcome_t outcome = locations[stack.locations[depth]].outcome;
            counts.jitFrames += inJit(outcome) ? stack.samples : 0;
            counts.resolvedFrames += outcome == loResolved ? stack.samples : 0;
        }
    }
    return counts;
}

void Report::framesOf(const StackTable::Stack& stack, std::vector<Frame>& rootFirst) const {
    rootFirst.clear();
    const std::vector<Location>& locations = m_resolver->locations();
    for (std::uint32_t depth = stack.depth; depth-- > 0;) {
        const std::vector<Frame>& frames = locations[stack.locations[depth]].frames;
        rootFirst.insert(rootFirst.end(), frames.begin(), frames.end());
    }
}

} // namespace korvane_report
