// The JVM agent: follows compiled and generated code and writes it as a .jit trace.
#include "jvm_agent.h"

#include <jvmticmlr.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace korvane_jvmagent {

namespace tw = korvane_tracewriter;

namespace {

const std::uint16_t kLanguageJava = 5;
const std::uint16_t kArchitecture64 = 1;
const char kPrefix[] = "korvane jvmagent: ";

std::uint64_t clockNanoseconds(clockid_t clock) {
    timespec now = {};
    ::clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
}

// The start of this process on the clock of the load times, CLOCK_MONOTONIC:
// code the agent has never seen an address of before may have run since then.
std::uint64_t processStartTime() {
    std::ifstream stat("/proc/self/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const std::size_t close = text.rfind(')');
    std::istringstream fields(close == std::string::npos ? std::string() : text.substr(close + 2));
    std::string field;
    for (int index = 3; index < 22 && fields >> field; ++index) {
    }
    unsigned long long ticks = 0;
    const long perSecond = ::sysconf(_SC_CLK_TCK);
    if (!(fields >> ticks) || perSecond <= 0)
        return 1;
    const std::uint64_t sinceBoot = ticks * (1000000000u / static_cast<std::uint64_t>(perSecond));
    const std::uint64_t bootNow = clockNanoseconds(CLOCK_BOOTTIME);
    const std::uint64_t monoNow = clockNanoseconds(CLOCK_MONOTONIC);
    const std::uint64_t runningFor = bootNow > sinceBoot ? bootNow - sinceBoot : 0;
    return monoNow > runningFor + 1 ? monoNow - runningFor : 1;
}

bool makeDirectories(const std::string& path, std::string& problem) {
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            problem = "cannot create the directory " + prefix + ": " + std::strerror(errno);
            return false;
        }
        if (slash == std::string::npos)
            return true;
    }
}

tw::Bytes codeBytes(std::uint64_t start, std::uint64_t length) {
    const std::uint8_t* code = reinterpret_cast<const std::uint8_t*>(start);
    return tw::Bytes(code, code + length);
}

// Line entries from base on, with neighbours of the same line joined.
std::vector<tw::LineEntry> lineEntries(std::uint64_t base, const std::vector<Stretch>& stretches,
                                       const MethodFacts& facts) {
    std::vector<tw::LineEntry> entries;
    for (const Stretch& stretch : stretches) {
        const std::uint32_t line = facts.lineAt(stretch.bci);
        const std::uint32_t start = static_cast<std::uint32_t>(stretch.start - base);
        const std::uint32_t end = static_cast<std::uint32_t>(stretch.end - base);
        if (line == 0)
            continue;
        if (!entries.empty() && entries.back().endOffset == start && entries.back().lineNumber == line)
            entries.back().endOffset = end;
        else
            entries.push_back(tw::LineEntry{start, end, line});
    }
    return entries;
}

// The fields a load record and an inline record of Java code share.
template <typename Record>
void describeJava(Record& record, const MethodFacts& facts) {
    record.architecture = kArchitecture64;
    record.methodName = facts.methodName;
    record.className = facts.className;
    record.sourceFileName = facts.sourceFile;
    record.languageType = kLanguageJava;
}

const jvmtiCompiledMethodLoadInlineRecord* inlineInfo(const void* compileInfo) {
    for (auto header = static_cast<const jvmtiCompiledMethodLoadRecordHeader*>(compileInfo); header;
         header = header->next)
        if (header->kind == JVMTI_CMLR_INLINE_INFO)
            return reinterpret_cast<const jvmtiCompiledMethodLoadInlineRecord*>(header);
    return nullptr;
}

JvmAgent* agentOf(jvmtiEnv* jvmti) {
    void* agent = nullptr;
    jvmti->GetEnvironmentLocalStorage(&agent);
    return static_cast<JvmAgent*>(agent);
}

void JNICALL onCompiledMethodLoad(jvmtiEnv* jvmti, jmethodID method, jint codeSize, const void* codeAddress,
                                  jint mapLength, const jvmtiAddrLocationMap* map, const void* compileInfo) {
    agentOf(jvmti)->compiledMethodLoad(method, codeSize, codeAddress, mapLength, map, compileInfo);
}

void JNICALL onCompiledMethodUnload(jvmtiEnv* jvmti, jmethodID method, const void* codeAddress) {
    agentOf(jvmti)->compiledMethodUnload(method, codeAddress);
}

void JNICALL onDynamicCodeGenerated(jvmtiEnv* jvmti, const char* name, const void* address, jint length) {
    agentOf(jvmti)->dynamicCodeGenerated(name, address, length);
}

void JNICALL onVmInit(jvmtiEnv* jvmti, JNIEnv*, jthread) { agentOf(jvmti)->vmInit(); }

void JNICALL onVmDeath(jvmtiEnv* jvmti, JNIEnv*) { agentOf(jvmti)->vmDeath(); }

} // namespace

JvmAgent* JvmAgent::create(JavaVM* vm, const char* options, bool attached, std::string& problem) {
    std::unique_ptr<AgentOptions> parsed = AgentOptions::create(options, problem);
    if (!parsed)
        return nullptr;
    jvmtiEnv* jvmti = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK || !jvmti) {
        problem = "the JVM offers no JVMTI environment";
        return nullptr;
    }
    std::unique_ptr<JvmAgent> agent(new JvmAgent(jvmti, std::move(parsed)));
    if (!agent->start(attached, problem)) {
        jvmti->DisposeEnvironment();
        return nullptr;
    }
    return agent.release();
}

JvmAgent::JvmAgent(jvmtiEnv* jvmti, std::unique_ptr<AgentOptions> options)
    : m_jvmti(jvmti), m_options(std::move(options)), m_catalogue(jvmti),
      m_addresses(new CodeAddressMap(processStartTime())) {}

bool JvmAgent::start(bool attached, std::string& problem) {
    if (!makeDirectories(m_options->directory(), problem))
        return false;
    const std::uint32_t pid = static_cast<std::uint32_t>(::getpid());
    const std::string path = m_options->directory() + "/" + tw::TraceFile::nameFor(m_options->host(), pid);
    m_trace = tw::TraceFile::create(path, tw::TraceWriter::kCollectorJitProfiler, problem);
    if (!m_trace)
        return false;
    if (!m_options->jvmViewPath().empty() && !(m_jvmView = std::fopen(m_options->jvmViewPath().c_str(), "w"))) {
        problem = "cannot create " + m_options->jvmViewPath() + ": " + std::strerror(errno);
        return false;
    }
    if (!enableEvents(problem))
        return false;
    note("writing " + path);
    if (attached)
        generateEvents();
    return true;
}

bool JvmAgent::enableEvents(std::string& problem) {
    jvmtiCapabilities capabilities = {};
    capabilities.can_generate_compiled_method_load_events = 1;
    capabilities.can_get_line_numbers = 1;
    capabilities.can_get_source_file_name = 1;
    if (m_jvmti->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE) {
        problem = "the JVM does not grant the capability to follow compiled methods with their lines";
        return false;
    }
    m_jvmti->SetEnvironmentLocalStorage(this);
    jvmtiEventCallbacks callbacks = {};
    callbacks.CompiledMethodLoad = onCompiledMethodLoad;
    callbacks.CompiledMethodUnload = onCompiledMethodUnload;
    callbacks.DynamicCodeGenerated = onDynamicCodeGenerated;
    callbacks.VMInit = onVmInit;
    callbacks.VMDeath = onVmDeath;
    if (m_jvmti->SetEventCallbacks(&callbacks, sizeof(callbacks)) != JVMTI_ERROR_NONE) {
        problem = "the JVM refuses the event callbacks";
        return false;
    }
    for (jvmtiEvent event : {JVMTI_EVENT_COMPILED_METHOD_LOAD, JVMTI_EVENT_COMPILED_METHOD_UNLOAD,
                             JVMTI_EVENT_DYNAMIC_CODE_GENERATED, JVMTI_EVENT_VM_INIT, JVMTI_EVENT_VM_DEATH}) {
        if (m_jvmti->SetEventNotificationMode(JVMTI_ENABLE, event, nullptr) != JVMTI_ERROR_NONE) {
            problem = "the JVM refuses to send event " + std::to_string(event);
            return false;
        }
    }
    return true;
}

// Code compiled or generated before the events were on; what the live
// events report as well is written once.
void JvmAgent::generateEvents() {
    m_jvmti->GenerateEvents(JVMTI_EVENT_DYNAMIC_CODE_GENERATED);
    m_jvmti->GenerateEvents(JVMTI_EVENT_COMPILED_METHOD_LOAD);
}

void JvmAgent::vmInit() { generateEvents(); }

void JvmAgent::vmDeath() {
    note(std::to_string(m_methods.load()) + " compiled methods and " + std::to_string(m_stubs.load()) +
         " stubs written");
}

void JvmAgent::note(const std::string& message) {
    if (m_options->verbose())
        std::fprintf(stderr, "%s%s\n", kPrefix, message.c_str());
}

void JvmAgent::compiledMethodLoad(jmethodID method, jint codeSize, const void* codeAddress, jint mapLength,
                                  const jvmtiAddrLocationMap* map, const void* compileInfo) {
    if (m_failed || codeSize <= 0 || !codeAddress)
        return;
    try {
        const std::uint64_t start = reinterpret_cast<std::uintptr_t>(codeAddress);
        const std::uint64_t length = static_cast<std::uint64_t>(codeSize);
        const InlineRanges ranges =
            InlineRanges::create(start, start + length, stacksOf(method, mapLength, map, compileInfo));
        tw::LoadRecord record = methodRecord(method, start, length, ranges);
        std::vector<tw::InlineRecord> inlines = inlineRecords(ranges, record.methodId);

        bool duplicate = false;
        std::lock_guard<std::mutex> lock(m_mutex);
        record.loadTime = loadTime(start, length, reinterpret_cast<std::uintptr_t>(method), duplicate);
        if (duplicate)
            return;
        tw::TraceWriter records;
        records.loadV3(record);
        for (tw::InlineRecord& child : inlines) {
            child.loadTime = record.loadTime;
            records.inlineLoad(child);
        }
        write(records);
        ++m_methods;
        if (m_jvmView)
            writeJvmView(ranges, record.loadTime);
    } catch (const std::exception& failure) {
        note(std::string("a compiled method is left out: ") + failure.what());
    }
}

tw::LoadRecord JvmAgent::methodRecord(jmethodID method, std::uint64_t start, std::uint64_t length,
                                      const InlineRanges& ranges) {
    const MethodFacts& facts = m_catalogue.facts(method);
    tw::LoadRecord record;
    record.methodId = m_nextId++;
    record.ranges.push_back(tw::CodeRange{start, static_cast<std::uint32_t>(length), codeBytes(start, length)});
    describeJava(record, facts);
    record.nativeToSource = lineEntries(start, ranges.outerStretches(), facts);
    return record;
}

// Enclosing ranges come first, so each record's parent id is known when it is made.
std::vector<tw::InlineRecord> JvmAgent::inlineRecords(const InlineRanges& ranges, std::uint32_t methodId) {
    std::vector<tw::InlineRecord> inlines;
    for (const InlineRange& range : ranges.ranges()) {
        const MethodFacts& facts = m_catalogue.facts(static_cast<jmethodID>(const_cast<void*>(range.method)));
        tw::InlineRecord child;
        child.methodId = m_nextId++;
        child.parentId = range.parent < 0 ? methodId : inlines[range.parent].methodId;
        child.startAddress = range.start;
        child.length = static_cast<std::uint32_t>(range.end - range.start);
        child.code = codeBytes(range.start, range.end - range.start);
        describeJava(child, facts);
        child.nativeToSource = lineEntries(range.start, range.stretches, facts);
        inlines.push_back(std::move(child));
    }
    return inlines;
}

void JvmAgent::compiledMethodUnload(jmethodID method, const void* codeAddress) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_addresses->unload(reinterpret_cast<std::uintptr_t>(codeAddress), reinterpret_cast<std::uintptr_t>(method),
                        clockNanoseconds(CLOCK_MONOTONIC));
}

void JvmAgent::dynamicCodeGenerated(const char* name, const void* address, jint length) {
    if (m_failed || length <= 0 || !address)
        return;
    try {
        const std::uint64_t start = reinterpret_cast<std::uintptr_t>(address);
        tw::LoadRecord record;
        record.methodId = m_nextId++;
        // Without their bytes: the interpreter alone is some hundred kilobytes,
        // and a profile asks of stubs only their names.
        record.ranges.push_back(tw::CodeRange{start, static_cast<std::uint32_t>(length), {}});
        record.architecture = kArchitecture64;
        record.methodName = name ? name : "stub";
        // Stubs have no method id; their name and place tell them apart.
        const std::uint64_t identity = std::hash<std::string>()(record.methodName) | (std::uint64_t(1) << 63);
        bool duplicate = false;
        std::lock_guard<std::mutex> lock(m_mutex);
        record.loadTime = loadTime(start, static_cast<std::uint64_t>(length), identity, duplicate);
        if (duplicate)
            return;
        tw::TraceWriter records;
        write(records.loadV3(record));
        ++m_stubs;
    } catch (const std::exception& failure) {
        note(std::string("a stub is left out: ") + failure.what());
    }
}

// The per-pc stacks of the inline information, or where the JVM gives none,
// the compiled method alone along its address-to-bytecode map. The map
// leaves out pcs whose bytecode index is negative, so where the stacks exist
// they give the compiled method's own lines too, and the two can't disagree.
std::vector<PcStack> JvmAgent::stacksOf(jmethodID method, jint mapLength, const jvmtiAddrLocationMap* map,
                                        const void* compileInfo) const {
    std::vector<PcStack> stacks;
    const jvmtiCompiledMethodLoadInlineRecord* info = inlineInfo(compileInfo);
    if (info && info->numpcs > 0) {
        for (jint index = 0; index < info->numpcs; ++index) {
            const PCStackInfo& pc = info->pcinfo[index];
            PcStack stack{reinterpret_cast<std::uintptr_t>(pc.pc), {}};
            for (jint level = pc.numstackframes - 1; level >= 0; --level)
                stack.frames.push_back(StackFrame{pc.methods[level], pc.bcis[level]});
            stacks.push_back(std::move(stack));
        }
        return stacks;
    }
    for (jint index = 0; map && index < mapLength; ++index)
        stacks.push_back(PcStack{reinterpret_cast<std::uintptr_t>(map[index].start_address),
                                 {StackFrame{method, static_cast<std::int32_t>(map[index].location)}}});
    return stacks;
}

std::uint64_t JvmAgent::loadTime(std::uint64_t start, std::uint64_t length, std::uint64_t identity,
                                 bool& duplicate) {
    duplicate = m_addresses->isLive(start, length, identity);
    return duplicate ? 0 : m_addresses->load(start, length, identity, clockNanoseconds(CLOCK_MONOTONIC));
}

void JvmAgent::write(const tw::TraceWriter& records) {
    std::string problem;
    if (m_trace->append(records, problem) || m_failed.exchange(true))
        return;
    std::fprintf(stderr, "%s%s; the trace stops here\n", kPrefix, problem.c_str());
}

// One line per stretch the JVM described: start, end and the load time
// given to it, then each level of its stack, outermost first, as
// class.method and line (0: none).
void JvmAgent::writeJvmView(const InlineRanges& ranges, std::uint64_t loadTime) {
    std::ostringstream lines;
    for (const DescribedCode& code : ranges.described()) {
        lines << std::hex << code.start << ' ' << code.end << std::dec << ' ' << loadTime;
        for (const StackFrame& frame : code.frames) {
            const MethodFacts& facts = m_catalogue.facts(static_cast<jmethodID>(const_cast<void*>(frame.method)));
            lines << '\t' << facts.plainName << ' ' << facts.lineAt(frame.bci);
        }
        lines << '\n';
    }
    std::fputs(lines.str().c_str(), m_jvmView);
    std::fflush(m_jvmView);
}

} // namespace korvane_jvmagent
