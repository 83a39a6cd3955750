// Fuzz target: the sample files of korvane-jit resolve, and the texts made of what they hold.
#include "sample_file.h"
#include "text_output.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<korvane_tool::Sample> samples;
    std::ostringstream messages;
    korvane_tool::SampleFile::read(in, "fuzz.csv", samples, messages);
    for (const korvane_tool::Sample& sample : samples) {
        korvane_tool::jsonString(sample.host);
        korvane_tool::csvField(sample.host);
        korvane_tool::excerpt(sample.host);
    }
    return 0;
}
