// Builds the load, inline and update records of the example traces from a few facts each.
#ifndef KORVANE_TOOLS_EXAMPLES_EXAMPLE_RECORDS_H
#define KORVANE_TOOLS_EXAMPLES_EXAMPLE_RECORDS_H

#include "code_bytes.h"

#include "tracewriter/trace_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane_examples {

// What one compiled method or inline is, before it becomes a record.
struct MethodFacts {
    std::uint32_t id = 0;
    std::uint32_t parentId = 0;
    std::uint32_t token = 0;
    std::string className;
    std::string methodName;
    std::string module;
    std::string sourceFile;
    std::uint16_t languageType = 0;
    std::uint64_t address = 0;
    std::uint32_t length = 0;
    std::uint64_t loadTime = 0;
    std::uint32_t firstLine = 0;
    std::vector<std::uint64_t> calls;
};

class ExampleRecords {
public:
    static const std::uint16_t kJava = 5;
    static const std::uint16_t kCSharp = 1;

    // Line tables: native to source in one step, or through IL offsets in two.
    enum LineTables { NativeToSource, NativeToManagedToSource };

    explicit ExampleRecords(CodeBytes::Width width) : m_width(width) {}

    korvane_tracewriter::LoadRecord load(const MethodFacts& facts, LineTables tables = NativeToSource) const;
    korvane_tracewriter::InlineRecord inlined(const MethodFacts& facts) const;
    // A patch of some bytes inside a method's code, under the method's own id.
    korvane_tracewriter::LoadRecord patch(const MethodFacts& facts, std::uint64_t address,
                                          const korvane_tracewriter::Bytes& bytes, std::uint64_t time) const;
    // New code for a whole range, found by its address.
    korvane_tracewriter::UpdateV2Record replace(const MethodFacts& facts, const std::string& rangeName,
                                                std::uint64_t time) const;

private:
    std::uint16_t architecture() const { return m_width == CodeBytes::Bits64 ? 1 : 0; }
    korvane_tracewriter::Bytes code(const MethodFacts& facts, unsigned variant) const;

    CodeBytes::Width m_width;
};

} // namespace korvane_examples

#endif
