// Resolves samples through one resolver and writes each as CSV rows or a JSON line.
#include "resolved_sample_writer.h"

namespace korvane_tool {

namespace {

using namespace korvane_3_10;
using korvane_report::InlineChain;
using korvane_report::Sample;
using korvane_report::SourceFrame;

const char kCsvHeader[] = "timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n";

const std::string kInJit = "jit";
const std::string kOutside = "outside JIT code";

} // namespace

ResolvedSampleWriter::ResolvedSampleWriter(ISymbolResolver& resolver, bool json, std::ostream& out)
    : m_resolver(resolver), m_json(json), m_out(out), m_hostId(0) {
    getHostIdByName(m_resolver, m_host.c_str(), &m_hostId);
    if (!m_json)
        m_out.text(kCsvHeader);
}

bool ResolvedSampleWriter::write(const Sample& sample) {
    resolve(sample);
    if (m_json)
        writeJson(sample);
    else
        writeCsv(sample);
    return m_resolution.result == meSuccess || m_resolution.result == meNotFound;
}

u32_t ResolvedSampleWriter::hostId(const std::string& host) {
    if (host != m_host) {
        m_host = host;
        getHostIdByName(m_resolver, m_host.c_str(), &m_hostId);
    }
    return m_hostId;
}

void ResolvedSampleWriter::resolve(const Sample& sample) {
    // Module and frames are only read on success; their storage is kept from sample to sample.
    Resolution& resolution = m_resolution;
    ISymbol::Ptr symbol;
    resolution.result = resolveJitPoint(m_resolver, sample.timestamp, sample.ip, sample.pid, hostId(sample.host),
                                        &resolution.jitRva, symbol);
    if (resolution.result != meSuccess)
        return;
    InlineChain::collect(*symbol, resolution.jitRva, resolution.frames);
}

const std::string& ResolvedSampleWriter::outcome() {
    if (m_resolution.result == meSuccess)
        return kInJit;
    if (m_resolution.result == meNotFound)
        return kOutside;
    m_failure = "trace not readable (result code " + std::to_string(m_resolution.result) + ")";
    return m_failure;
}

void ResolvedSampleWriter::writeCsvHead(const Sample& sample) {
    m_out.decimal(sample.timestamp).character(',').hex(sample.ip).character(',').decimal(sample.pid).character(',');
    m_out.csvField(sample.host).character(',').csvField(outcome()).character(',');
    if (m_resolution.result == meSuccess)
        m_out.hex(m_resolution.jitRva).character(',').csvField(module()).character(',');
}

void ResolvedSampleWriter::writeCsv(const Sample& sample) {
    if (m_resolution.result != meSuccess) {
        writeCsvHead(sample);
        m_out.text(",,,,,\n");
        return;
    }
    for (std::size_t depth = 0; depth < m_resolution.frames.size(); ++depth) {
        const SourceFrame& frame = m_resolution.frames[depth];
        writeCsvHead(sample);
        m_out.decimal(depth).character(',').csvField(frame.method).character(',').csvField(frame.sourceFile);
        m_out.character(',');
        if (frame.line)
            m_out.decimal(frame.line);
        m_out.character('\n');
    }
}

void ResolvedSampleWriter::writeJson(const Sample& sample) {
    m_out.text("{\"timestamp\":").decimal(sample.timestamp).text(",\"ip\":\"").hex(sample.ip);
    m_out.text("\",\"pid\":").decimal(sample.pid).text(",\"host\":").jsonString(sample.host);
    m_out.text(",\"result\":").jsonString(outcome());
    if (m_resolution.result == meSuccess) {
        m_out.text(",\"jit_rva\":\"").hex(m_resolution.jitRva).text("\",\"module\":").jsonString(module());
        writeJsonFrames();
    }
    m_out.text("}\n");
}

void ResolvedSampleWriter::writeJsonFrames() {
    m_out.text(",\"frames\":[");
    for (std::size_t depth = 0; depth < m_resolution.frames.size(); ++depth) {
        const SourceFrame& frame = m_resolution.frames[depth];
        m_out.text(depth ? ",{\"method\":" : "{\"method\":").jsonString(frame.method).text(",\"source_file\":");
        if (frame.sourceFile.empty())
            m_out.text("null");
        else
            m_out.jsonString(frame.sourceFile);
        m_out.text(",\"line\":");
        if (frame.line)
            m_out.decimal(frame.line);
        else
            m_out.text("null");
        m_out.character('}');
    }
    m_out.character(']');
}

} // namespace korvane_tool
