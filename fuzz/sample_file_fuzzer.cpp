// Fuzz target: the sample files of korvane-jit resolve, read by the tool's in-place reader and by
// the report's reader, which must agree, and the texts made of what they hold.
#include "report/input_text.h"
#include "report/sample_file.h"
#include "sample_table.h"
#include "text_output.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool sameSamples(const std::vector<korvane_report::Sample>& samples, const korvane_tool::SampleTable& table) {
    if (samples.size() != table.samples().size())
        return false;
    for (std::size_t index = 0; index < samples.size(); ++index) {
        const korvane_report::Sample& expected = samples[index];
        const korvane_tool::TableSample& sample = table.samples()[index];
        if (expected.timestamp != sample.timestamp || expected.ip != sample.ip || expected.pid != sample.pid ||
            expected.host != table.hosts()[sample.host])
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::istringstream in(text);
    std::vector<korvane_report::Sample> samples;
    std::ostringstream messages;
    const bool allRead = korvane_report::SampleFile::read(in, "fuzz.csv", samples, messages);
    std::ostringstream tableMessages;
    const korvane_tool::SampleTable table = korvane_tool::SampleTable::create(text, "fuzz.csv", tableMessages);
    if (allRead != table.allRead() || messages.str() != tableMessages.str() || !sameSamples(samples, table))
        std::abort();
    for (const korvane_report::Sample& sample : samples) {
        korvane_tool::jsonString(sample.host);
        korvane_tool::csvField(sample.host);
        korvane_report::excerpt(sample.host);
    }
    return 0;
}
