// korvane-jit-examples OUTDIR: writes example .jit traces and samples to resolve against them.
#include "example_set.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2 || std::string(argv[1]) == "--help") {
        (argc == 2 ? std::cout : std::cerr)
            << "Usage: korvane-jit-examples OUTDIR\n\n"
               "Writes example .jit traces into OUTDIR/session-1 and OUTDIR/session-2, and\n"
               "OUTDIR/samples.csv with samples inside and outside their JIT code.\n"
               "The output is the same on every run.\n";
        return argc == 2 ? 0 : 2;
    }
    try {
        for (const std::string& path : korvane_examples::ExampleSet(argv[1]).write())
            std::cout << path << "\n";
    } catch (const std::exception& error) {
        std::cerr << "korvane-jit-examples: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
