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
    // A method's region; the method holds it, and the writer holds the method.
    struct CodeSpan {
        korvane_3_10::jit_rva_t start = 0;
        korvane_3_10::u32_t length = 0;
        korvane_3_10::ICodeRegion* region = nullptr;

        bool holds(korvane_3_10::jit_rva_t jitRva) const { return jitRva >= start && jitRva - start < length; }
    };
    // What a method's frames repeat from sample to sample, already written as output fields.
    struct Method {
        korvane_3_10::ISymbol::Ptr symbol; // keeps the key alive
        std::string_view name;             // in m_nameBlocks
        const std::string* module;
        // Read once, as the library's iterator allocates; nearly every method has one region.
        CodeSpan firstRegion;
        std::vector<CodeSpan> moreRegions;
        // Each source file its lines named, and its field.
        std::vector<std::pair<std::string, const std::string*>> sourceFiles;

        // The region that holds the jit RVA, as the method lists them: the first that does.
        korvane_3_10::ICodeRegion::Ptr regionHolding(korvane_3_10::jit_rva_t jitRva) const {
            if (firstRegion.holds(jitRva))
                return firstRegion.region;
            for (const CodeSpan& span : moreRegions) {
                if (span.holds(jitRva))
                    return span.region;
            }
            return korvane_3_10::ICodeRegion::Ptr();
        }
    };
    // What writing a frame reads, small, as there is one or more for every sample of a batch:
    // the method name's text itself, and the few module and source file fields.
    struct Frame {
        const char* name;
        korvane_3_10::u32_t nameLength;
        korvane_3_10::u32_t line; // 0: no line known
        const std::string* sourceFile;
        const std::string* module;

        std::string_view nameText() const { return std::string_view(name, nameLength); }
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
    // The methods of the sample before, by depth: samples in address order mostly share them.
    struct Recent {
        const korvane_3_10::ISymbol* symbol = nullptr;
        Method* method = nullptr;
    };

    bool writeBatch(const TableSample* samples, std::size_t count);
    // Fills m_answers and m_frames for the batch.
    void resolveInAddressOrder(const TableSample* samples, std::size_t count);
    std::vector<Answer> answersInOrder(const std::vector<OrderKey>& order);
    void putFramesInSampleOrder();
    // Asks the processor for the text of the sample at index, which is written soon.
    void prefetchText(std::size_t index, std::size_t count) const;
    // The method at the sample, null when the sample lies outside JIT code or is not answered.
    korvane_3_10::ISymbol::Ptr locate(const TableSample& sample, Answer& answer);
    // The method's frame and those of its inlines at the answer's jit RVA, appended to `frames`.
    void collect(const korvane_3_10::ISymbol::Ptr& symbol, Answer& answer, std::vector<Frame>& frames);
    Method& method(const korvane_3_10::ISymbol::Ptr& symbol, std::size_t depth);
    void addFrame(Method& method, korvane_3_10::jit_rva_t jitRva, std::vector<Frame>& frames);
    std::string_view keptName(const std::string& name);
    const std::string& sourceField(Method& method, const char* sourceFile);
    const std::string& sharedField(const char* value);
    // The result column; a failure's code is spelled out in m_failure.
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
    std::unordered_map<const korvane_3_10::ISymbol*, Method> m_methods;
    std::array<Recent, 4> m_recent;
    // Module and source file names, each written as a field once.
    std::unordered_map<std::string, std::string> m_fields;
    std::string m_fieldKey; // kept, so that looking up a long name allocates nothing
    // The methods' names, one after another.
    std::vector<std::unique_ptr<char[]>> m_nameBlocks;
    char* m_nameEnd;
    std::size_t m_nameRoom;
    // Of the batch: the samples' answers and their frames, in the samples' order, each sample's
    // outermost first (the method, which carries the module).
    std::vector<Answer> m_answers;
    std::vector<Frame> m_frames;
    std::vector<Frame> m_orderedFrames; // m_frames as they were resolved, in address order
    // The frames of a sample resolved again as it is written.
    std::vector<Frame> m_deepFrames;
    std::string m_noSourceFile;
    std::string m_failure;
};

} // namespace korvane_tool

#endif
