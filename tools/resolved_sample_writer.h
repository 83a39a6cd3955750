// Resolves samples through one resolver and writes each as CSV rows or a JSON line.
#ifndef KORVANE_TOOLS_RESOLVED_SAMPLE_WRITER_H
#define KORVANE_TOOLS_RESOLVED_SAMPLE_WRITER_H

#include "output_buffer.h"

#include "report/inline_chain.h"
#include "report/sample_file.h"

#include <korvane/jitreader.h>

#include <ostream>
#include <string>
#include <vector>

namespace korvane_tool {

class ResolvedSampleWriter {
public:
    // CSV starts with its header line; JSON Lines has none.
    ResolvedSampleWriter(korvane_3_10::ISymbolResolver& resolver, bool json, std::ostream& out);

    // False when the traces could not answer the sample (neither found nor outside JIT code).
    bool write(const korvane_report::Sample& sample);
    void flush() { m_out.flush(); }

private:
    struct Resolution {
        korvane_error_t result = meNotFound;
        korvane_3_10::jit_rva_t jitRva = 0;
        // Outermost first: the method itself, which carries the module, at least.
        std::vector<korvane_report::SourceFrame> frames;
    };

    void resolve(const korvane_report::Sample& sample);
    // The result column; a failure's code is spelled out in m_failure.
    const std::string& outcome();
    const std::string& module() const { return m_resolution.frames.front().module; }
    korvane_3_10::u32_t hostId(const std::string& host);
    void writeCsv(const korvane_report::Sample& sample);
    void writeCsvHead(const korvane_report::Sample& sample);
    void writeJson(const korvane_report::Sample& sample);
    void writeJsonFrames();

    korvane_3_10::ISymbolResolver& m_resolver;
    bool m_json;
    OutputBuffer m_out;
    Resolution m_resolution;
    std::string m_failure;
    // Samples mostly come from one host: its id is looked up when the name changes.
    std::string m_host;
    korvane_3_10::u32_t m_hostId;
};

} // namespace korvane_tool

#endif
