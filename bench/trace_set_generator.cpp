// korvane-bench-traces: writes the benchmark's set of traces at a size given on the command line.
#include "trace_set_writer.h"

#include <boost/filesystem/operations.hpp>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

namespace {

const char* const kUsage =
    "usage: korvane-bench-traces DIRECTORY [--methods N] [--files-per-process N] [--seed N]\n"
    "Writes 8 processes on 2 hosts: half Java-like V3 records with inlines linked by id,\n"
    "half V2 records with inlines found by address; the same arguments give the same bytes.\n";

bool readNumber(const char* text, std::uint64_t& value) {
    char* end = nullptr;
    value = std::strtoull(text, &end, 10);
    return end != text && *end == '\0' && value != 0;
}

bool parseArguments(int argc, char** argv, std::string& directory, korvane_bench::TraceSetShape& shape) {
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument.compare(0, 2, "--") != 0) {
            if (!directory.empty())
                return false;
            directory = argument;
            continue;
        }
        std::uint64_t value = 0;
        if (index + 1 >= argc || !readNumber(argv[++index], value))
            return false;
        if (argument == "--methods")
            shape.methods = static_cast<std::uint32_t>(value);
        else if (argument == "--files-per-process")
            shape.filesPerProcess = static_cast<std::uint32_t>(value);
        else if (argument == "--seed")
            shape.seed = value;
        else
            return false;
    }
    return !directory.empty();
}

} // namespace

int main(int argc, char** argv) {
    std::string directory;
    korvane_bench::TraceSetShape shape;
    if (!parseArguments(argc, argv, directory, shape)) {
        std::cerr << kUsage;
        return 2;
    }
    try {
        boost::filesystem::create_directories(directory);
        const korvane_bench::TraceSetSummary summary = korvane_bench::TraceSetWriter::write(shape, directory);
        std::cout << summary.files.size() << " files, " << summary.loadRecords << " load records, "
                  << summary.inlineRecords << " inline records, " << summary.bytes << " bytes\n";
    } catch (const std::exception& error) {
        std::cerr << "korvane-bench-traces: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
