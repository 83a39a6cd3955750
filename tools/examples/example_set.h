// The example traces: result directories of a few hosts and processes, and samples to resolve.
#ifndef KORVANE_TOOLS_EXAMPLES_EXAMPLE_SET_H
#define KORVANE_TOOLS_EXAMPLES_EXAMPLE_SET_H

#include "tracewriter/trace_writer.h"

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_examples {

class ExampleSet {
public:
    explicit ExampleSet(boost::filesystem::path outDir);

    // Writes every trace and samples.csv; returns the paths written, in order.
    std::vector<std::string> write();

private:
    struct Sample {
        std::string timestamp;
        std::string ip;
        std::string pid;
        std::string host;
    };

    void writeShopJvm();
    void writeLegacyJvm();
    void writeBillingService();
    void writeImporter();
    void writeScriptEngine();
    void writeBatchJvm();
    void writeBillingReload();
    void writeSamples();

    void writeTrace(const std::string& directory, const std::string& name,
                    const korvane_tracewriter::TraceWriter& trace);
    void sample(std::uint64_t timestamp, std::uint64_t ip, std::uint32_t pid, const std::string& host);
    // The same with the time stamp in hex and the address in decimal, as some profilers write them.
    void sampleHexTime(std::uint64_t timestamp, std::uint64_t ip, std::uint32_t pid, const std::string& host);

    boost::filesystem::path m_outDir;
    std::vector<std::string> m_written;
    std::vector<Sample> m_samples;
};

} // namespace korvane_examples

#endif
