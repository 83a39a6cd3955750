// Feeds every file of the given directories once to a fuzz target: its corpus
// as a regression test in the ordinary builds, without libFuzzer.
#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = boost::filesystem;

// The regular files of a directory in name order; none when it does not exist.
std::vector<fs::path> inputsIn(const fs::path& directory) {
    std::vector<fs::path> inputs;
    boost::system::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (fs::is_regular_file(entry->status()))
            inputs.push_back(entry->path());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

} // namespace

int main(int argc, char** argv) {
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& input : inputsIn(argv[i])) {
            std::cout << input.string() << std::endl;
            std::ifstream file(input.string(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::cout << replayed << " inputs replayed" << std::endl;
    // No input at all means a corpus went missing, not that all is well.
    return replayed == 0 ? 1 : 0;
}
