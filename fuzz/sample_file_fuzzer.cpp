// Fuzz target: the sample files of korvane-jit resolve, and the texts made of what they hold.
#include "report/input_text.h"
#include "report/sample_file.h"
#include "text_output.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<korvane_report::Sample> samples;
    std::ostringstream messages;
    korvane_report::SampleFile::read(in, "fuzz.csv", samples, messages);
    for (const korvane_report::Sample& sample : samples) {
        korvane_tool::jsonString(sample.host);
        korvane_tool::csvField(sample.host);
        korvane_report::excerpt(sample.host);
    }
    return 0;
}
