// Resolves samples through one resolver and writes each as CSV rows or a JSON line.
#include "resolved_sample_writer.h"

#include "text_output.h"

#include <algorithm>
#include <cstdint>
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
// the frames of samples twice this far ahead are fetched while the current one is written, and
// the names of those this far ahead, whose frames are in the cache by then.
const std::size_t kLookAhead = 16;
// The names and source files of the methods one after another, which keeps them on few pages:
// they are read in the samples' order, all over the table.
const std::size_t kTextBlock = 1 << 20;
const std::size_t kMethodBlock = 4096;
// Slots of the method table: at most 512 KiB, within the processor's cache beside the rest, and
// no more than the samples can fill.
const unsigned kFewestMethodSlotBits = 8;
const unsigned kMostMethodSlotBits = 15;
const unsigned kFieldSlotBits = 10;

unsigned methodSlotBits(std::size_t samples) {
    unsigned bits = kFewestMethodSlotBits;
    while (bits < kMostMethodSlotBits && (std::size_t(1) << bits) < samples)
        ++bits;
    return bits;
}

std::size_t methodSlot(const ISymbol* symbol, unsigned bits) {
    return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(symbol) * 0x9e3779b97f4a7c15ull) >>
                                    (64 - bits));
}

std::size_t fieldSlot(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    return static_cast<std::size_t>(hash >> (64 - kFieldSlotBits));
}

// Whether JSON writes the text between quotes as it stands: printable ASCII, no quote or backslash.
bool plainJson(std::string_view text) {
    for (const unsigned char c : text) {
        if (c < 0x20 || c > 0x7e || c == '"' || c == '\\')
            return false;
    }
    return true;
}

} // namespace

ResolvedSampleWriter::ResolvedSampleWriter(ISymbolResolver& resolver, const std::deque<std::string>& hosts, bool json,
                                           std::ostream& out)
    : m_resolver(resolver), m_json(json), m_out(out), m_methodsInBlock(kMethodBlock),
      m_methodSlotBits(0), m_fieldSlots(std::size_t(1) << kFieldSlotBits),
      m_textEnd(nullptr), m_textRoom(0), m_noSourceFile(json ? "null" : ""), m_inJit(field(kInJit)),
      m_outside(field(kOutside)) {
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
        prefetchFrames(index + 2 * kLookAhead, count);
        prefetchText(index + kLookAhead, count);
        Answer answer = m_answers[index];
        const Frame* frames = m_frames.data() + answer.firstFrame;
        if (answer.frameCount == kNotKept) {
            m_deepFrames.clear();
            ICodeRegion::Ptr region;
            const ISymbol::Ptr symbol = locate(samples[index], answer, region);
            if (symbol)
                collect(symbol, std::move(region), answer, m_deepFrames);
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

inline void ResolvedSampleWriter::prefetchFrames(std::size_t index, std::size_t count) const {
    if (index >= count)
        return;
    // A frame may straddle two cache lines.
    const Frame* frame = m_frames.data() + m_answers[index].firstFrame;
    __builtin_prefetch(frame);
    __builtin_prefetch(reinterpret_cast<const char*>(frame + 1) - 1);
}

inline void ResolvedSampleWriter::prefetchText(std::size_t index, std::size_t count) const {
    if (index >= count)
        return;
    const Answer& answer = m_answers[index];
    if (answer.frameCount == 0 || answer.frameCount == kNotKept)
        return;
    const Frame& frame = m_frames[answer.firstFrame];
    __builtin_prefetch(frame.name);
    __builtin_prefetch(frame.name + frame.nameLength);
}

bool ResolvedSampleWriter::OrderKey::operator<(const OrderKey& other) const {
    if (hostId != other.hostId)
        return hostId < other.hostId;
    return sample.pid != other.sample.pid ? sample.pid < other.sample.pid : sample.ip < other.sample.ip;
}

void ResolvedSampleWriter::resolveInAddressOrder(const TableSample* samples, std::size_t count) {
    std::vector<OrderKey> order;
    order.reserve(count);
    for (std::size_t index = 0; index < count; ++index)
        order.push_back({samples[index], m_hosts[samples[index].host].id, static_cast<u32_t>(index)});
    std::sort(order.begin(), order.end());
    if (m_methodSlots.empty()) {
        m_methodSlotBits = methodSlotBits(count);
        m_methodSlots.resize(std::size_t(1) << m_methodSlotBits);
    }
    m_answers.resize(count);
    answerInOrder(order);
}

// Each answer goes straight to its sample's place: the store waits for no one, while a table of
// answers in address order would be as large again and read all over once more.
void ResolvedSampleWriter::answerInOrder(const std::vector<OrderKey>& order) {
    m_frames.clear();
    // Most samples have a frame or two; room that is never used costs no memory.
    m_frames.reserve(order.size() * 2);
    const ISymbol* previous = nullptr;
    Answer previousAnswer{};
    for (std::size_t position = 0; position < order.size(); ++position) {
        Answer answer;
        ICodeRegion::Ptr region;
        const ISymbol::Ptr symbol = locate(order[position].sample, answer, region);
        // The same code as the sample before: its frames serve again.
        if (symbol && symbol.get() == previous && answer.jitRva == previousAnswer.jitRva)
            answer = previousAnswer;
        else if (symbol)
            collect(symbol, std::move(region), answer, m_frames);
        if (answer.frameCount > kKeptFrames && answer.frameCount != kNotKept) {
            m_frames.resize(answer.firstFrame);
            answer.frameCount = kNotKept;
        }
        previous = symbol.get();
        previousAnswer = answer;
        m_answers[order[position].index] = answer;
    }
}

std::string ResolvedSampleWriter::field(const std::string& value) const {
    return m_json ? jsonString(value) : csvField(value);
}

ISymbol::Ptr ResolvedSampleWriter::locate(const TableSample& sample, Answer& answer, ICodeRegion::Ptr& region) {
    ISymbol::Ptr symbol;
    answer.result = resolveJitPoint(m_resolver, sample.timestamp, sample.ip, sample.pid, m_hosts[sample.host].id,
                                    &answer.jitRva, symbol, region);
    answer.firstFrame = 0;
    answer.frameCount = 0;
    return answer.result == meSuccess ? symbol : ISymbol::Ptr();
}

void ResolvedSampleWriter::collect(const ISymbol::Ptr& symbol, ICodeRegion::Ptr region, Answer& answer,
                                   std::vector<Frame>& frames) {
    const jit_rva_t jitRva = answer.jitRva;
    answer.firstFrame = static_cast<u32_t>(frames.size());
    addFrame(method(symbol, 0), jitRva, frames);
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
    MethodSlot& recent = m_recent[std::min(depth, m_recent.size() - 1)];
    if (symbol.get() == recent.symbol)
        return *recent.method;
    MethodSlot& slot = m_methodSlots[methodSlot(symbol.get(), m_methodSlotBits)];
    if (slot.symbol != symbol.get())
        slot = {symbol.get(), &newMethod(symbol)};
    recent = slot;
    return *slot.method;
}

ResolvedSampleWriter::Method& ResolvedSampleWriter::newMethod(const ISymbol::Ptr& symbol) {
    if (m_methodsInBlock == kMethodBlock) {
        m_methodBlocks.emplace_back(new Method[kMethodBlock]);
        m_methodsInBlock = 0;
    }
    Method& method = m_methodBlocks.back()[m_methodsInBlock++];
    method.symbol = symbol;
    method.name = keptField(symbol->getQualifiedMethodName());
    const IModule::Ptr module = symbol->getModule();
    method.module = &sharedField(module ? module->getFilePath() : nullptr);
    return method;
}

void ResolvedSampleWriter::addFrame(Method& method, jit_rva_t jitRva, std::vector<Frame>& frames) {
    Frame frame{method.name.data(), static_cast<u32_t>(method.name.size()), 0, m_noSourceFile.data(),
                static_cast<u32_t>(m_noSourceFile.size()), method.module};
    const ISourceLocation::Ptr location = method.symbol->getSourceLocation(jitRva);
    if (location) {
        frame.line = location->getLine();
        const std::string_view field = sourceField(method);
        frame.sourceFile = field.data();
        frame.sourceFileLength = static_cast<u32_t>(field.size());
    }
    frames.push_back(frame);
}

std::string_view ResolvedSampleWriter::keptField(const char* value, std::string_view* raw) {
    const std::string_view text = value ? std::string_view(value) : std::string_view();
    if (!m_json)
        return keptCsvField(text, raw);
    if (raw)
        *raw = keptText(text);
    if (!plainJson(text))
        return keptText(field(std::string(text)));
    return keptQuoted(text, '\0');
}

// One pass copies the text a byte in from the start of its room and tells whether it needs
// quotes; a name that does mostly needs no more than the two around it, which then go into
// the bytes left free on either side, so that the field holds the raw text too.
std::string_view ResolvedSampleWriter::keptCsvField(std::string_view text, std::string_view* raw) {
    if (text.empty()) {
        if (raw)
            *raw = text;
        return text;
    }
    char* room = textRoom(text.size() + 2);
    bool special = false;
    bool quote = false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char c = text[index];
        room[index + 1] = c;
        special |= c == ',' || c == '\r' || c == '\n';
        quote |= c == '"';
    }
    const std::string_view plain(room + 1, text.size());
    if (raw)
        *raw = plain;
    if (quote)
        return keptQuoted(text, '"');
    if (!special)
        return plain;
    room[0] = '"';
    room[text.size() + 1] = '"';
    return std::string_view(room, text.size() + 2);
}

// As csvField and jsonString write the text when it has only its quotes to add: CSV doubles the
// quotes inside, JSON has none inside (doubled: '\0').
std::string_view ResolvedSampleWriter::keptQuoted(std::string_view text, char doubled) {
    const std::size_t inner = doubled ? std::count(text.begin(), text.end(), doubled) : 0;
    const std::size_t size = text.size() + inner + 2;
    char* kept = textRoom(size);
    char* out = kept;
    *out++ = '"';
    for (const char c : text) {
        if (c == doubled)
            *out++ = c;
        *out++ = c;
    }
    *out = '"';
    return std::string_view(kept, size);
}

std::string_view ResolvedSampleWriter::keptText(std::string_view text) {
    if (text.empty())
        return std::string_view("");
    char* kept = textRoom(text.size());
    std::memcpy(kept, text.data(), text.size());
    return std::string_view(kept, text.size());
}

char* ResolvedSampleWriter::textRoom(std::size_t size) {
    if (size > m_textRoom) {
        const std::size_t blockSize = std::max(kTextBlock, size);
        m_textBlocks.emplace_back(new char[blockSize]);
        m_textEnd = m_textBlocks.back().get();
        m_textRoom = blockSize;
    }
    char* room = m_textEnd;
    m_textEnd += size;
    m_textRoom -= size;
    return room;
}

// A location's source file is the method's, so the symbol is asked once instead of each location.
std::string_view ResolvedSampleWriter::sourceField(Method& method) {
    if (!method.sourceField.data()) {
        const ISourceFile::Ptr file = method.symbol->getSourceFile();
        const char* name = file ? file->getSourceFileName() : nullptr;
        method.sourceField = name && *name ? keptField(name) : std::string_view(m_noSourceFile);
    }
    return method.sourceField;
}

const ResolvedSampleWriter::FieldEntry& ResolvedSampleWriter::sharedEntry(const char* value) {
    const std::string_view raw = value ? std::string_view(value) : std::string_view();
    const FieldEntry*& slot = m_fieldSlots[fieldSlot(raw)];
    if (slot && slot->first == raw)
        return *slot;
    m_fieldKey.assign(raw);
    const FieldMap::iterator entry = m_fields.try_emplace(m_fieldKey).first;
    if (entry->second.empty())
        entry->second = field(m_fieldKey);
    slot = &*entry;
    return *slot;
}

const std::string& ResolvedSampleWriter::outcome(korvane_error_t result) {
    if (result == meSuccess)
        return m_inJit;
    if (result == meNotFound)
        return m_outside;
    m_failure = field("trace not readable (result code " + std::to_string(result) + ")");
    return m_failure;
}

void ResolvedSampleWriter::writeCsvHead(const TableSample& sample, const Answer& answer, const Frame* frames) {
    m_out.decimal(sample.timestamp).character(',').hex(sample.ip).character(',').decimal(sample.pid).character(',');
    m_out.text(m_hosts[sample.host].field).character(',').text(outcome(answer.result)).character(',');
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
        m_out.decimal(depth).character(',').text(frame.nameText()).character(',').text(frame.sourceFileText());
        m_out.character(',');
        if (frame.line)
            m_out.decimal(frame.line);
        m_out.character('\n');
    }
}

void ResolvedSampleWriter::writeJson(const TableSample& sample, const Answer& answer, const Frame* frames) {
    m_out.text("{\"timestamp\":").decimal(sample.timestamp).text(",\"ip\":\"").hex(sample.ip);
    m_out.text("\",\"pid\":").decimal(sample.pid).text(",\"host\":").text(m_hosts[sample.host].field);
    m_out.text(",\"result\":").text(outcome(answer.result));
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
        m_out.text(frame.sourceFileText()).text(",\"line\":");
        if (frame.line)
            m_out.decimal(frame.line);
        else
            m_out.text("null");
        m_out.character('}');
    }
    m_out.character(']');
}

} // namespace korvane_tool
