// Reads the text of `perf script -F pid,tid,time,period,ip,sym,dso [--ns]`, with or
// without call chains, and hands each sample on frame by frame.
#ifndef KORVANE_REPORT_PERF_SCRIPT_PARSER_H
#define KORVANE_REPORT_PERF_SCRIPT_PARSER_H

#include "perf_sample_sink.h"

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace korvane_report {

class PerfScriptParser {
public:
    // Strict: the first line that perf's format does not explain ends the reading.
    PerfScriptParser(PerfSampleSink& sink, bool strict);

    // Any piece of the text; lines may be cut anywhere. False once reading has stopped.
    bool feed(std::string_view text);
    // The end of the text: a last line without its line break, a sample without its blank line.
    void finish();
    // The whole stream, then finish. False if it stopped on a bad line.
    bool read(std::istream& in);

    std::uint64_t samples() const { return m_samples; }
    std::uint64_t badLines() const { return m_badLines; }
    std::uint64_t firstBadLine() const { return m_firstBadLine; }
    const std::string& firstBadText() const { return m_firstBadText; }
    bool stopped() const { return m_stopped; }

private:
    enum period_layout_t { plUnknown, plWithPeriod, plWithoutPeriod };

    void line(std::string_view text);
    void frameLine(std::string_view text);
    bool headerLine(std::string_view text);
    bool headerRest(std::string_view rest, PerfSampleHead& head);
    void closeSample();
    void keepOpenFrames();
    void bad(std::uint64_t number, std::string_view text);

    PerfSampleSink& m_sink;
    bool m_strict;
    bool m_stopped = false;
    std::string m_partial;
    std::uint64_t m_lineNumber = 0;
    // A sample is open from its head line to its blank line. Its frames point into the
    // text being fed, or into m_kept once that text is gone.
    bool m_open = false;
    PerfSampleHead m_head;
    std::vector<PerfFrame> m_frames;
    std::string m_kept;
    std::uint64_t m_headLine = 0;
    period_layout_t m_layout = plUnknown;
    std::uint64_t m_samples = 0;
    std::uint64_t m_badLines = 0;
    std::uint64_t m_firstBadLine = 0;
    std::string m_firstBadText;
};

} // namespace korvane_report

#endif
