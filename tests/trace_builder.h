// Records of plausible traces, generated trace directories and the front ends over
// them, for the tests and benchmarks that read real files.
#ifndef KORVANE_TESTS_TRACE_BUILDER_H
#define KORVANE_TESTS_TRACE_BUILDER_H

#include "test_support.h"

#include "tracewriter/trace_writer.h"

#include <korvane/jitreader.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvane_test {

// A method of one code range with bytes, a source file and one line per 16 bytes.
inline korvane_tracewriter::LoadRecord methodAt(std::uint32_t id, std::uint64_t address, std::uint32_t length,
                                                std::uint64_t loadTime, const std::string& name) {
    korvane_tracewriter::LoadRecord record;
    record.methodId = id;
    record.methodToken = 0x06000000 + id;
    record.loadTime = loadTime;
    record.ranges.push_back({address, length, korvane_tracewriter::Bytes(length, 0x90)});
    record.moduleName = "/opt/app/lib" + name + ".so";
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

inline boost::intrusive_ptr<korvane_3_10::ISymbolResolver> resolverOver(const std::vector<std::string>& paths) {
    PathList list(paths);
    boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator> noLocator;
    return korvane_3_10::ISymbolResolver::create(list.iterator(), noLocator);
}

inline boost::intrusive_ptr<korvane_3_10::IJitLoader> loaderOver(const std::vector<std::string>& paths) {
    PathList list(paths);
    return korvane_3_10::IJitLoader::create(list.iterator());
}

// The process ids that a process list over the paths lists; nothing when it can't be made.
inline std::optional<std::vector<korvane_3_10::u32_t>> processesOver(const std::vector<std::string>& paths) {
    PathList list(paths);
    const boost::intrusive_ptr<korvane_3_10::IJitProcesses> processes =
        korvane_3_10::IJitProcesses::create(list.iterator());
    if (!processes)
        return std::nullopt;
    std::vector<korvane_3_10::u32_t> pids;
    for (auto walk = processes->getJitProcessId(); !walk.at_end(); walk.next())
        pids.push_back(walk.current());
    return pids;
}

// The names of the resolver's methods in the order it lists them.
inline std::vector<std::string> methodNames(korvane_3_10::ISymbolResolver& resolver) {
    std::vector<std::string> names;
    for (auto walk = resolver.getSymbols(); !walk.at_end(); walk.next())
        names.push_back(walk.current()->getMethodName());
    return names;
}

inline std::map<std::string, korvane_3_10::ISymbol::Ptr> symbolsByName(korvane_3_10::ISymbolResolver& resolver) {
    std::map<std::string, korvane_3_10::ISymbol::Ptr> symbols;
    for (auto walk = resolver.getSymbols(); !walk.at_end(); walk.next())
        symbols[walk.current()->getMethodName()] = walk.current();
    return symbols;
}

// Processes 1 to `processes` of one host, each in one file: `methods` methods side
// by side from time 10, an inline over the second quarter of every `inlineEvery`-th,
// and the first `replaced` methods overwritten at time 50 by code half a method on.
struct CorpusShape {
    std::string host;
    std::uint32_t processes;
    std::uint32_t methods;
    std::uint32_t length;
    std::uint32_t inlineEvery;
    std::uint32_t replaced;
};

class Corpus {
public:
    explicit Corpus(const CorpusShape& shape) : m_shape(shape) {
        for (std::uint32_t process = 1; process <= shape.processes; ++process) {
            korvane_tracewriter::TraceWriter trace = profilerTrace();
            for (std::uint32_t method = 0; method < shape.methods; ++method) {
                const std::uint64_t address = addressOf(process, method);
                trace.loadV3(methodAt(method + 1, address, shape.length, 10, nameOf(process, method)));
                if (method % shape.inlineEvery == 0)
                    trace.inlineLoad(inlineAt(1000000 + method, method + 1, address + shape.length / 4,
                                              shape.length / 4, 10, 500 + method));
            }
            for (std::uint32_t method = 0; method < shape.replaced; ++method) {
                const std::uint64_t shifted = addressOf(process, method) + shape.length / 2;
                trace.loadV3(methodAt(2000000 + method, shifted, shape.length, 50, "late"));
            }
            m_files.push_back(m_dir.write(shape.host + "." + std::to_string(process) + ".jit", trace));
        }
    }

    static std::string nameOf(std::uint32_t process, std::uint32_t method) {
        return "p" + std::to_string(process) + "m" + std::to_string(method);
    }
    std::uint64_t addressOf(std::uint32_t process, std::uint32_t method) const {
        return 0x1000000ull * process + m_shape.length * method;
    }
    std::vector<std::string> paths() const { return {m_dir.str()}; }
    const std::string& file(std::uint32_t process) const { return m_files[process - 1]; }

private:
    CorpusShape m_shape;
    TempDir m_dir;
    std::vector<std::string> m_files;
};

} // namespace korvane_test

#endif
