// Resolves samples through one resolver and writes each as CSV rows or a JSON line.
#include "resolved_sample_writer.h"

#include "text_output.h"

#include <algorithm>
#include <cstring>

namespace korvane_tool {

namespace {

using namespace korvane_3_10;

const char kCsvHeader[] = "timestamp,ip,pid,host,result,jit_rva,module,depth,method,source_file,line\n";

const std::string kInJit = "jit";
const std::string kOutside = "outside JIT code";

// Inlines nest a few levels deep; this only stops a cycle in broken data.
const std::size_t kMaxDepth = 64;

// Samples are resolved a batch at a time in the order of their addresses, so that the
// traces' data of a method comes from memory once for all its samples, and then written in
// their own order.
const std::size_t kBatchSamples = std::size_t(1) << 20;
// Frames kept per sample from resolving to writing. A deeper chain, rare and as deep as the
// traces make it, is resolved again when written, so that memory stays in proportion to
// the samples.
const u32_t kKeptFrames = 4;
const u32_t kNotKept = ~u32_t(0);
// Samples are written in their own order, so their frames and names lie anywhere in memory:
// those of samples this far ahead are fetched while the current one is written.
const std::size_t kLookAhead = 16;
// The names of the methods one after another, which keeps them on few pages: they are read in
// the samples' order, all over the table.
const std::size_t kNameBlock = 1 << 20;

} // namespace

ResolvedSampleWriter::ResolvedSampleWriter(ISymbolResolver& resolver, const std::deque<std::string>& hosts, bool json,
                                           std::ostream& out)
    : m_resolver(resolver), m_json(json), m_out(out), m_nameEnd(nullptr), m_nameRoom(0),
      m_noSourceFile(json ? "null" : "") {
    m_hosts.resize(hosts.size());
    for (std::size_t index = 0; index < hosts.size(); ++index) {
        getHostIdByName(m_resolver, hosts[index].c_str(), &m_hosts[index].id);
        m_hosts[index].field = field(hosts[index]);
    }
    if (!m_json)
        m_out.text(kCsvHeader);
}

bool ResolvedSampleWriter::write(const std::vector<TableSample>& samples) {
    bool allAnswered = true;
    for (std::size_t begin = 0; begin < samples.size(); begin += kBatchSamples)
        allAnswered = writeBatch(samples.data() + begin, std::min(kBatchSamples, samples.size() - begin)) && allAnswered;
    return allAnswered;
}

bool ResolvedSampleWriter::writeBatch(const TableSample* samples, std::size_t count) {
    resolveInAddressOrder(samples, count);
    bool allAnswered = true;
    for (std::size_t index = 0; index < count; ++index) {
        prefetchText(index + kLookAhead, count);
        Answer answer = m_answers[index];
        const Frame* frames = m_frames.data() + answer.firstFrame;
        if (answer.frameCount == kNotKept) {
            m_deepFrames.clear();
            const ISymbol::Ptr symbol = locate(samples[index], answer);
            if (symbol)
                collect(symbol, answer, m_deepFrames);
            frames = m_deepFrames.data();
        }
        if (m_json)
            writeJson(samples[index], answer, frames);
        else
            writeCsv(samples[index], answer, frames);
        allAnswered = allAnswered && (answer.result == meSuccess || answer.result == meNotFound);
    }
    return allAnswered;
}

void ResolvedSampleWriter::prefetchText(std::size_t index, std::size_t count) const {
    if (index >= count)
        return;
    const Answer& answer = m_answers[index];
    if (answer.frameCount == 0 || answer.frameCount == kNotKept)
        return;
    const Frame& frame = m_frames[answer.firstFrame];
    __builtin_prefetch(frame.name);
    __builtin_prefetch(frame.sourceFile);
}

bool ResolvedSampleWriter::OrderKey::operator<(const OrderKey& other) const {
    if (hostId != other.hostId)
        return hostId < other.hostId;
    return sample.pid != other.sample.pid ? sample.pid < other.sample.pid : sample.ip < other.sample.ip;
}

void ResolvedSampleWriter::resolveInAddressOrder(const TableSample* samples, std::size_t count) {
    std::vector<OrderKey> order(count);
    for (std::size_t index = 0; index < count; ++index)
        order[index] = {samples[index], m_hosts[samples[index].host].id, static_cast<u32_t>(index)};
    std::sort(order.begin(), order.end());
    // Samples mostly share methods: a quarter as many as samples is room enough for most runs,
    // and the table is not rebuilt over and over as it fills.
    if (m_methods.empty())
        m_methods.reserve(count / 4);
    // In address order first, then to the samples' places in a pass of its own: stores all over
    // the table would stall the resolving.
    const std::vector<Answer> answers = answersInOrder(order);
    m_answers.resize(count);
    for (std::size_t position = 0; position < count; ++position)
        m_answers[order[position].index] = answers[position];
    putFramesInSampleOrder();
}

std::vector<ResolvedSampleWriter::Answer> ResolvedSampleWriter::answersInOrder(const std::vector<OrderKey>& order) {
    m_frames.clear();
    std::vector<Answer> answers(order.size());
    const ISymbol* previous = nullptr;
    Answer previousAnswer{};
    for (std::size_t position = 0; position < order.size(); ++position) {
        Answer& answer = answers[position];
        const ISymbol::Ptr symbol = locate(order[position].sample, answer);
        // The same code as the sample before: its frames serve again.
        if (symbol && symbol.get() == previous && answer.jitRva == previousAnswer.jitRva)
            answer = previousAnswer;
        else if (symbol)
            collect(symbol, answer, m_frames);
        if (answer.frameCount > kKeptFrames && answer.frameCount != kNotKept) {
            m_frames.resize(answer.firstFrame);
            answer.frameCount = kNotKept;
        }
        previous = symbol.get();
        previousAnswer = answer;
    }
    return answers;
}

// So that writing reads the frames one after another.
void ResolvedSampleWriter::putFramesInSampleOrder() {
    m_orderedFrames.clear();
    for (Answer& answer : m_answers) {
        if (answer.frameCount == 0 || answer.frameCount == kNotKept)
            continue;
        const std::vector<Frame>::const_iterator first = m_frames.begin() + answer.firstFrame;
        answer.firstFrame = static_cast<u32_t>(m_orderedFrames.size());
        m_orderedFrames.insert(m_orderedFrames.end(), first, first + answer.frameCount);
    }
    m_frames.swap(m_orderedFrames);
}

std::string ResolvedSampleWriter::field(const std::string& value) const {
    return m_json ? jsonString(value) : csvField(value);
}

ISymbol::Ptr ResolvedSampleWriter::locate(const TableSample& sample, Answer& answer) {
    ISymbol::Ptr symbol;
    answer.result = resolveJitPoint(m_resolver, sample.timestamp, sample.ip, sample.pid, m_hosts[sample.host].id,
                                    &answer.jitRva, symbol);
    answer.firstFrame = 0;
    answer.frameCount = 0;
    return answer.result == meSuccess ? symbol : ISymbol::Ptr();
}

void ResolvedSampleWriter::collect(const ISymbol::Ptr& symbol, Answer& answer, std::vector<Frame>& frames) {
    const jit_rva_t jitRva = answer.jitRva;
    answer.firstFrame = static_cast<u32_t>(frames.size());
    Method& outermost = method(symbol, 0);
    addFrame(outermost, jitRva, frames);
    ICodeRegion::Ptr region = outermost.regionHolding(jitRva);
    while (region && frames.size() - answer.firstFrame <= kMaxDepth) {
        ICodeRegion::Ptr inlined = region->getInlinedCodeRegion(jitRva);
        const ISymbol::Ptr inlinedSymbol = region->getInlinedSymbol(jitRva);
        if (!inlined || !inlinedSymbol)
            break;
        addFrame(method(inlinedSymbol, frames.size() - answer.firstFrame), jitRva, frames);
        region = std::move(inlined);
    }
    answer.frameCount = static_cast<u32_t>(frames.size() - answer.firstFrame);
}

ResolvedSampleWriter::Method& ResolvedSampleWriter::method(const ISymbol::Ptr& symbol, std::size_t depth) {
    Recent& recent = m_recent[std::min(depth, m_recent.size() - 1)];
    if (symbol.get() == recent.symbol)
        return *recent.method;
    Method& method = m_methods[symbol.get()];
    recent = {symbol.get(), &method};
    if (method.symbol)
        return method;
    method.symbol = symbol;
    method.name = keptName(field(text(symbol->getQualifiedMethodName())));
    const IModule::Ptr module = symbol->getModule();
    method.module = &sharedField(module ? module->getFilePath() : nullptr);
    for (auto regions = symbol->getRegions(); !regions.at_end(); regions.next()) {
        const ICodeRegion::Ptr region = regions.current();
        if (!region)
            continue;
        const CodeSpan span{region->getStartJitRva(), region->getLength(), region.get()};
        if (!method.firstRegion.region)
            method.firstRegion = span;
        else
            method.moreRegions.push_back(span);
    }
    return method;
}

void ResolvedSampleWriter::addFrame(Method& method, jit_rva_t jitRva, std::vector<Frame>& frames) {
    Frame frame{method.name.data(), static_cast<u32_t>(method.name.size()), 0, &m_noSourceFile, method.module};
    const ISourceLocation::Ptr location = method.symbol->getSourceLocation(jitRva);
    if (location) {
        frame.line = location->getLine();
        const ISourceFile::Ptr file = location->getSourceFile();
        if (file)
            frame.sourceFile = &sourceField(method, file->getSourceFileName());
    }
    frames.push_back(frame);
}

std::string_view ResolvedSampleWriter::keptName(const std::string& name) {
    if (name.empty())
        return std::string_view("");
    if (name.size() > m_nameRoom) {
        const std::size_t size = std::max(kNameBlock, name.size());
        m_nameBlocks.emplace_back(new char[size]);
        m_nameEnd = m_nameBlocks.back().get();
        m_nameRoom = size;
    }
    char* kept = m_nameEnd;
    std::memcpy(kept, name.data(), name.size());
    m_nameEnd += name.size();
    m_nameRoom -= name.size();
    return std::string_view(kept, name.size());
}

const std::string& ResolvedSampleWriter::sourceField(Method& method, const char* sourceFile) {
    if (!sourceFile || !*sourceFile)
        return m_noSourceFile;
    for (const auto& known : method.sourceFiles) {
        if (known.first == sourceFile)
            return *known.second;
    }
    method.sourceFiles.emplace_back(sourceFile, &sharedField(sourceFile));
    return *method.sourceFiles.back().second;
}

const std::string& ResolvedSampleWriter::sharedField(const char* value) {
    m_fieldKey.assign(value ? value : "");
    std::string& shared = m_fields[m_fieldKey];
    if (shared.empty())
        shared = field(m_fieldKey);
    return shared;
}

const std::string& ResolvedSampleWriter::outcome(korvane_error_t result) {
    if (result == meSuccess)
        return kInJit;
    if (result == meNotFound)
        return kOutside;
    m_failure = "trace not readable (result code " + std::to_string(result) + ")";
    return m_failure;
}

void ResolvedSampleWriter::writeCsvHead(const TableSample& sample, const Answer& answer, const Frame* frames) {
    m_out.decimal(sample.timestamp).character(',').hex(sample.ip).character(',').decimal(sample.pid).character(',');
    m_out.text(m_hosts[sample.host].field).character(',').csvField(outcome(answer.result)).character(',');
    if (answer.result == meSuccess)
        m_out.hex(answer.jitRva).character(',').text(*frames->module).character(',');
}

void ResolvedSampleWriter::writeCsv(const TableSample& sample, const Answer& answer, const Frame* frames) {
    if (answer.result != meSuccess) {
        writeCsvHead(sample, answer, frames);
        m_out.text(",,,,,\n");
        return;
    }
    for (std::size_t depth = 0; depth < answer.frameCount; ++depth) {
        const Frame& frame = frames[depth];
        writeCsvHead(sample, answer, frames);
        m_out.decimal(depth).character(',').text(frame.nameText()).character(',').text(*frame.sourceFile);
        m_out.character(',');
        if (frame.line)
            m_out.decimal(frame.line);
        m_out.character('\n');
    }
}

void ResolvedSampleWriter::writeJson(const TableSample& sample, const Answer& answer, const Frame* frames) {
    m_out.text("{\"timestamp\":").decimal(sample.timestamp).text(",\"ip\":\"").hex(sample.ip);
    m_out.text("\",\"pid\":").decimal(sample.pid).text(",\"host\":").text(m_hosts[sample.host].field);
    m_out.text(",\"result\":").jsonString(outcome(answer.result));
    if (answer.result == meSuccess) {
        m_out.text(",\"jit_rva\":\"").hex(answer.jitRva).text("\",\"module\":").text(*frames->module);
        writeJsonFrames(frames, answer.frameCount);
    }
    m_out.text("}\n");
}

void ResolvedSampleWriter::writeJsonFrames(const Frame* frames, std::size_t count) {
    m_out.text(",\"frames\":[");
    for (std::size_t depth = 0; depth < count; ++depth) {
        const Frame& frame = frames[depth];
        m_out.text(depth ? ",{\"method\":" : "{\"method\":").text(frame.nameText()).text(",\"source_file\":");
        m_out.text(*frame.sourceFile).text(",\"line\":");
        if (frame.line)
            m_out.decimal(frame.line);
        else
            m_out.text("null");
        m_out.character('}');
    }
    m_out.character(']');
}

} // namespace korvane_tool
