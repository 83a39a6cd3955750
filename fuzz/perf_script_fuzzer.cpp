// Feeds arbitrary bytes to the perf script reader, whole and then cut in two.
#include "report/perf_script_parser.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

// Touches every byte handed out, so that a view past its buffer shows.
class Sink : public korvane_report::PerfSampleSink {
public:
    void sample(const korvane_report::PerfSampleHead& head,
                const std::vector<korvane_report::PerfFrame>& frames) override {
        m_sum += head.pid + head.time;
        for (const korvane_report::PerfFrame& frame : frames) {
            m_sum += frame.ip;
            for (char c : frame.text)
                m_sum += static_cast<unsigned char>(c);
        }
    }

private:
    std::uint64_t m_sum = 0;
};

void parse(std::string_view first, std::string_view second, bool strict) {
    Sink sink;
    korvane_report::PerfScriptParser parser(sink, strict);
    parser.feed(first);
    parser.feed(second);
    parser.finish();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    parse(text, std::string_view(), false);
    parse(text.substr(0, size / 2), text.substr(size / 2), size % 2 == 1);
    return 0;
}
