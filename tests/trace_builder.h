// Records of plausible traces, for the tests and benchmarks that read real files.
#ifndef KORVANE_TESTS_TRACE_BUILDER_H
#define KORVANE_TESTS_TRACE_BUILDER_H

#include "tracewriter/trace_writer.h"

#include <cstdint>
#include <string>

namespace korvane_test {

// A method of one code range with bytes, a source file and one line per 16 bytes.
inline korvane_tracewriter::LoadRecord methodAt(std::uint32_t id, std::uint64_t address, std::uint32_t length,
                                                std::uint64_t loadTime, const std::string& name) {
    korvane_tracewriter::LoadRecord record;
    record.methodId = id;
    record.methodToken = 0x06000000 + id;
    record.loadTime = loadTime;
    korvane_tracewriter::CodeRange range;
    range.startAddress = address;
    range.length = length;
    range.code.assign(length, 0x90);
    record.ranges.push_back(range);
    record.moduleName = "/opt/app/lib" + name + ".so";
    record.architecture = 1;
    record.methodName = name;
    record.className = "App";
    record.sourceFileName = name + ".cs";
    for (std::uint32_t offset = 0; offset < length; offset += 16)
        record.nativeToSource.push_back({offset, offset + 16 > length ? length : offset + 16, 100 + offset / 16});
    return record;
}

// An inline of the method with the given id; its one line covers all of it.
inline korvane_tracewriter::InlineRecord inlineAt(std::uint32_t id, std::uint32_t parentId, std::uint64_t address,
                                                  std::uint32_t length, std::uint64_t loadTime, std::uint32_t line) {
    korvane_tracewriter::InlineRecord record;
    record.methodId = id;
    record.parentId = parentId;
    record.loadTime = loadTime;
    record.startAddress = address;
    record.length = length;
    record.code.assign(length, 0xcc);
    record.methodName = "inlined" + std::to_string(id);
    record.className = "App";
    record.sourceFileName = "Inlined.cs";
    record.nativeToSource.push_back({0, length, line});
    return record;
}

// A trace of the profiling agent that gives methods ids.
inline korvane_tracewriter::TraceWriter profilerTrace() {
    korvane_tracewriter::TraceWriter trace;
    trace.magic().collectorType(1);
    return trace;
}

} // namespace korvane_test

#endif
