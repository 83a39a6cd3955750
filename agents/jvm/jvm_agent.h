// The JVM agent: follows compiled and generated code and writes it as a .jit trace.
#ifndef KORVANE_AGENTS_JVM_JVM_AGENT_H
#define KORVANE_AGENTS_JVM_JVM_AGENT_H

#include "agent_options.h"
#include "code_address_map.h"
#include "inline_ranges.h"
#include "method_catalogue.h"
#include "tracewriter/trace_file.h"

#include <jvmti.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace korvane_jvmagent {

class JvmAgent {
public:
    // Gets a JVMTI environment, opens the trace and turns the events on;
    // null with the reason in problem, the JVM then runs on without agent.
    // An attached agent asks at once for the code compiled so far; a loaded
    // one does so when the JVM is up.
    static JvmAgent* create(JavaVM* vm, const char* options, bool attached, std::string& problem);

    void compiledMethodLoad(jmethodID method, jint codeSize, const void* codeAddress, jint mapLength,
                            const jvmtiAddrLocationMap* map, const void* compileInfo);
    void compiledMethodUnload(jmethodID method, const void* codeAddress);
    void dynamicCodeGenerated(const char* name, const void* address, jint length);
    void vmInit();
    void vmDeath();

private:
    JvmAgent(jvmtiEnv* jvmti, std::unique_ptr<AgentOptions> options);
    bool start(bool attached, std::string& problem);
    bool enableEvents(std::string& problem);
    void generateEvents();
    void note(const std::string& message);
    std::vector<PcStack> stacksOf(jmethodID method, jint mapLength, const jvmtiAddrLocationMap* map,
                                  const void* compileInfo) const;
    korvane_tracewriter::LoadRecord methodRecord(jmethodID method, std::uint64_t start, std::uint64_t length,
                                                 const InlineRanges& ranges);
    std::vector<korvane_tracewriter::InlineRecord> inlineRecords(const InlineRanges& ranges, std::uint32_t methodId);
    std::uint64_t loadTime(std::uint64_t start, std::uint64_t length, std::uint64_t identity, bool& duplicate);
    void write(const korvane_tracewriter::TraceWriter& records);
    void writeJvmView(const InlineRanges& ranges, std::uint64_t loadTime);

    jvmtiEnv* m_jvmti;
    std::unique_ptr<AgentOptions> m_options;
    std::unique_ptr<korvane_tracewriter::TraceFile> m_trace;
    MethodCatalogue m_catalogue;
    std::mutex m_mutex; // guards m_addresses, and keeps a method's records and its load time together
    std::unique_ptr<CodeAddressMap> m_addresses;
    std::atomic<std::uint32_t> m_nextId{1};
    std::atomic<std::uint64_t> m_methods{0};
    std::atomic<std::uint64_t> m_stubs{0};
    std::atomic<bool> m_failed{false};
    std::FILE* m_jvmView = nullptr;
};

} // namespace korvane_jvmagent

#endif
