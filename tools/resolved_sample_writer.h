// Resolves samples through one resolver and writes each as CSV rows or a JSON line.
#ifndef KORVANE_TOOLS_RESOLVED_SAMPLE_WRITER_H
#define KORVANE_TOOLS_RESOLVED_SAMPLE_WRITER_H

#include "output_buffer.h"
#include "sample_table.h"

#include <korvane/jitreader.h>

#include <array>
#include <deque>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace korvane_tool {

class ResolvedSampleWriter {
public:
    // hosts: the names that the samples' host indexes point at. CSV starts with its header
    // line; JSON Lines has none.
    ResolvedSampleWriter(korvane_3_10::ISymbolResolver& resolver, const std::deque<std::string>& hosts, bool json,
                         std::ostream& out);

    // Writes each sample in its order. False when the traces could not answer a sample
    // (neither found nor outside JIT code).
    bool write(const std::vector<TableSample>& samples);
    void flush() { m_out.flush(); }

private:
    struct Host {
        korvane_3_10::u32_t id = 0;
        std::string field; // the name as the output writes it
    };
    // Module names, each written as a field once, by the name.
    typedef std::unordered_map<std::string, std::string> FieldMap;
    typedef FieldMap::value_type FieldEntry;
    // What a method's frames repeat from sample to sample, already written as output fields.
    struct Method {
        korvane_3_10::ISymbol::Ptr symbol; // keeps the key alive
        std::string_view name;             // in m_textBlocks
        const std::string* module = nullptr;
        // Its source file as a field, made when a line first needs it: every line of a method
        // names the method's own source file. No data until then.
        std::string_view sourceField;
    };
    // What writing a frame reads, small, as there is one or more for every sample of a batch:
    // the method name's text itself, and the few module and source file fields.
    struct Frame {
        const char* name;
        korvane_3_10::u32_t nameLength;
        korvane_3_10::u32_t line; // 0: no line known
        const char* sourceFile;
        korvane_3_10::u32_t sourceFileLength;
        const std::string* module;

        std::string_view nameText() const { return std::string_view(name, nameLength); }
        std::string_view sourceFileText() const { return std::string_view(sourceFile, sourceFileLength); }
    };

    // A sample's answer from resolving to writing; its frames lie in m_frames.
    struct Answer {
        korvane_3_10::jit_rva_t jitRva;
        korvane_error_t result;
        korvane_3_10::u32_t firstFrame;
        korvane_3_10::u32_t frameCount; // kNotKept: resolved again when written
    };

    // A copy of the sample, so that resolving in address order reads the keys one after another.
    struct OrderKey {
        TableSample sample;
        korvane_3_10::u32_t hostId;
        korvane_3_10::u32_t index; // of the sample in its batch

        bool operator<(const OrderKey& other) const;
    };
    // A method by its symbol: in the slot table, and for the sample before, by depth, as samples in
    // address order mostly share them.
    struct MethodSlot {
        const korvane_3_10::ISymbol* symbol = nullptr;
        Method* method = nullptr;
    };

    bool writeBatch(const TableSample* samples, std::size_t count);
    // Fills m_answers and m_frames for the batch.
    void resolveInAddressOrder(const TableSample* samples, std::size_t count);
    void answerInOrder(const std::vector<OrderKey>& order);
    // Ask the processor for the frames and the text of the sample at index, which is written soon.
    // Inlined: the compiler takes a prefetch for no effect and drops a call that only prefetches.
    __attribute__((always_inline)) void prefetchFrames(std::size_t index, std::size_t count) const;
    __attribute__((always_inline)) void prefetchText(std::size_t index, std::size_t count) const;
    // The method at the sample and its code region there, nulls when the sample lies outside JIT
    // code or is not answered.
    korvane_3_10::ISymbol::Ptr locate(const TableSample& sample, Answer& answer,
                                      korvane_3_10::ICodeRegion::Ptr& region);
    // The method's frame and those of the inlines below its region at the answer's jit RVA,
    // appended to `frames`.
    void collect(const korvane_3_10::ISymbol::Ptr& symbol, korvane_3_10::ICodeRegion::Ptr region, Answer& answer,
                 std::vector<Frame>& frames);
    Method& method(const korvane_3_10::ISymbol::Ptr& symbol, std::size_t depth);
    Method& newMethod(const korvane_3_10::ISymbol::Ptr& symbol);
    void addFrame(Method& method, korvane_3_10::jit_rva_t jitRva, std::vector<Frame>& frames);
    // A library text as its output field, kept in m_textBlocks; `raw`, if asked, the text itself
    // kept there too.
    std::string_view keptField(const char* value, std::string_view* raw = nullptr);
    std::string_view keptCsvField(std::string_view text, std::string_view* raw);
    std::string_view keptText(std::string_view text);
    std::string_view keptQuoted(std::string_view text, char doubled);
    char* textRoom(std::size_t size);
    std::string_view sourceField(Method& method);
    const std::string& sharedField(const char* value) { return sharedEntry(value).second; }
    const FieldEntry& sharedEntry(const char* value);
    // The result column's field; a failure's code is spelled out in m_failure.
    const std::string& outcome(korvane_error_t result);
    std::string field(const std::string& value) const;
    void writeCsv(const TableSample& sample, const Answer& answer, const Frame* frames);
    void writeCsvHead(const TableSample& sample, const Answer& answer, const Frame* frames);
    void writeJson(const TableSample& sample, const Answer& answer, const Frame* frames);
    void writeJsonFrames(const Frame* frames, std::size_t count);

    korvane_3_10::ISymbolResolver& m_resolver;
    bool m_json;
    OutputBuffer m_out;
    std::vector<Host> m_hosts;
    // The methods met so far, in blocks that never move, and the last one met in each slot of
    // a table small enough to stay in the cache, by the symbol's address; the slot holds the
    // key, so that a method met for the first time costs no look at another. A method whose slot
    // another took is built again when met again: that costs its name once more, where a table
    // of every method would cost a cache miss for each.
    std::vector<std::unique_ptr<Method[]>> m_methodBlocks;
    std::size_t m_methodsInBlock;
    std::vector<MethodSlot> m_methodSlots; // sized by the first batch
    unsigned m_methodSlotBits;
    std::array<MethodSlot, 4> m_recent;
    FieldMap m_fields;
    // The last module field met in each slot, by the name's hash: a few names make most fields.
    std::vector<const FieldEntry*> m_fieldSlots;
    std::string m_fieldKey; // kept, so that looking up a long name allocates nothing
    // The methods' names and source files as fields, one after another.
    std::vector<std::unique_ptr<char[]>> m_textBlocks;
    char* m_textEnd;
    std::size_t m_textRoom;
    // Of the batch: the samples' answers, in the samples' order, and their frames as they were
    // resolved, in address order, each sample's outermost first (the method, which carries the module).
    std::vector<Answer> m_answers;
    std::vector<Frame> m_frames;
    // The frames of a sample resolved again as it is written.
    std::vector<Frame> m_deepFrames;
    std::string m_noSourceFile;
    std::string m_inJit;
    std::string m_outside;
    std::string m_failure;
};

} // namespace korvane_tool

#endif
