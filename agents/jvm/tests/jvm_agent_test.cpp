// Runs the Java workload with the agent in a real JVM and reads its trace back.
#include <korvane/jitreader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace korvane_3_10;

const char kHost[] = "testhost";

struct JavaRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readText(const std::string& path) {
    std::ifstream file(path);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

std::string temporaryDirectory() {
    char pattern[] = "/tmp/korvane-jvmagent-XXXXXX";
    const char* made = ::mkdtemp(pattern);
    return made ? made : "";
}

// Runs the workload with the agent, behind the given command (e.g. perf).
JavaRun runWorkload(const std::string& agentOptions, const std::string& workDir, int rounds,
                    const std::string& under = std::string()) {
    const std::string command = under + " env " + KORVANE_TEST_JAVA + " '-agentpath:" + KORVANE_TEST_AGENT +
                                (agentOptions.empty() ? "" : "=" + agentOptions) + "' -cp " + KORVANE_TEST_WORKLOAD +
                                " korvane.workload.Workload " + std::to_string(rounds) + " >" + workDir +
                                "/out 2>" + workDir + "/err";
    JavaRun run;
    run.status = std::system(command.c_str());
    run.out = readText(workDir + "/out");
    run.err = readText(workDir + "/err");
    return run;
}

// The process id in the name of the one trace file of a directory.
std::uint32_t tracedProcess(const std::string& directory) {
    std::uint32_t pid = 0;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(directory, missing))
        if (entry.path().extension() == ".jit")
            pid = static_cast<std::uint32_t>(std::stoul(entry.path().stem().extension().string().substr(1)));
    return pid;
}

// "pkg::Cls<K>::method(int)" as the JVM's view names it: "pkg.Cls.method".
std::string plainName(const std::string& qualified) {
    std::string name = qualified.substr(0, qualified.find('('));
    std::string plain;
    int depth = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '<' && i > 0 && name[i - 1] != ':')
            ++depth;
        else if (name[i] == '>' && depth > 0)
            --depth;
        else if (depth == 0)
            plain += name[i];
    }
    for (std::size_t colons = plain.find("::"); colons != std::string::npos; colons = plain.find("::"))
        plain.replace(colons, 2, ".");
    return plain;
}

struct Frame {
    std::string method;
    std::uint32_t line = 0;
    bool operator==(const Frame& other) const { return method == other.method && line == other.line; }
};

std::ostream& operator<<(std::ostream& out, const std::vector<Frame>& frames) {
    for (const Frame& frame : frames)
        out << " / " << frame.method << ":" << frame.line;
    return out;
}

struct Described {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t loadTime = 0;
    std::vector<Frame> frames;
};

std::vector<Described> readJvmView(const std::string& path) {
    std::vector<Described> view;
    std::istringstream lines(readText(path));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        Described described;
        fields >> std::hex >> described.start >> described.end >> std::dec >> described.loadTime;
        for (Frame frame; fields >> frame.method >> frame.line;)
            described.frames.push_back(frame);
        view.push_back(described);
    }
    return view;
}

// A front end over the one directory.
template <typename Front> boost::intrusive_ptr<Front> open(const std::string& directory) {
    const std::vector<const char*> directories{directory.c_str()};
    skeinkit2::iterutil::stl_iterator_impl_t<const char*, std::vector<const char*>::const_iterator> walk(
        directories.begin(), directories.end());
    skeinkit2::generic_iterator_t<const char*> paths(walk);
    if constexpr (std::is_same<Front, ISymbolResolver>::value) {
        boost::intrusive_ptr<ISymbolFileLocator> locator;
        return ISymbolResolver::create(paths, locator);
    } else {
        return IJitLoader::create(paths);
    }
}

class WorkloadTrace : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_workDir = temporaryDirectory();
        s_run = runWorkload("dir=" + s_workDir + "/trace,host=" + kHost + ",jvmview=" + s_workDir + "/view",
                            s_workDir, 20);
        s_resolver = open<ISymbolResolver>(s_workDir + "/trace");
        s_loader = open<IJitLoader>(s_workDir + "/trace");
        s_pid = tracedProcess(s_workDir + "/trace");
    }

    static void TearDownTestSuite() {
        // A failure leaves the view and the trace behind for a look.
        if (::testing::UnitTest::GetInstance()->current_test_suite()->Passed())
            std::filesystem::remove_all(s_workDir);
        else
            std::fprintf(stderr, "the JVM's view and the trace stay in %s\n", s_workDir.c_str());
        s_resolver.reset();
        s_loader.reset();
    }

    // The methods at an address at a time, outermost first, with their lines.
    static std::vector<Frame> chainAt(std::uint64_t address, std::uint64_t time) {
        std::vector<Frame> frames;
        u32_t hostId = 0;
        jit_rva_t rva = 0;
        IModule::Ptr module;
        if (s_loader->getHostIdByName(kHost, &hostId) != meSuccess ||
            s_loader->resolveJitPoint(time, address, s_pid, hostId, &rva, module) != meSuccess)
            return frames;
        ISymbol::Ptr symbol = s_resolver->getSymbol(rva);
        ICodeRegion::Ptr region;
        for (auto regions = symbol ? symbol->getRegions() : skeinkit2::generic_iterator_t<ICodeRegion::Ptr>();
             !regions.at_end(); regions.next())
            if (rva >= regions.current()->getStartJitRva() &&
                rva < regions.current()->getStartJitRva() + regions.current()->getLength())
                region = regions.current();
        for (; symbol; region = region ? region->getInlinedCodeRegion(rva) : nullptr) {
            const ISourceLocation::Ptr location = symbol->getSourceLocation(rva);
            frames.push_back(Frame{plainName(symbol->getQualifiedMethodName()), location ? location->getLine() : 0});
            symbol = region ? region->getInlinedSymbol(rva) : nullptr;
        }
        return frames;
    }

protected:
    static std::string s_workDir;
    static JavaRun s_run;
    static boost::intrusive_ptr<ISymbolResolver> s_resolver;
    static boost::intrusive_ptr<IJitLoader> s_loader;
    static std::uint32_t s_pid;
};

std::string WorkloadTrace::s_workDir;
JavaRun WorkloadTrace::s_run;
boost::intrusive_ptr<ISymbolResolver> WorkloadTrace::s_resolver;
boost::intrusive_ptr<IJitLoader> WorkloadTrace::s_loader;
std::uint32_t WorkloadTrace::s_pid = 0;

TEST_F(WorkloadTrace, HotMethodsAreThereWithTheirLines) {
    ASSERT_EQ(0, s_run.status) << s_run.err;
    ASSERT_TRUE(s_resolver && s_loader && s_pid);
    const struct {
        const char* method;
        const char* sourceFile;
    } hot[] = {{"korvane.workload.Sorting.sortBlock", "Sorting.java"},
               {"korvane.workload.Geometry.area", "Geometry.java"},
               {"korvane.workload.Words.word", "Words.java"}};
    for (const auto& expected : hot) {
        bool withLine = false;
        for (auto symbols = s_resolver->getSymbols(); !symbols.at_end() && !withLine; symbols.next()) {
            const ISymbol::Ptr symbol = symbols.current();
            if (plainName(symbol->getQualifiedMethodName()) != expected.method)
                continue;
            const jit_rva_t start = symbol->getStartJitRva();
            for (jit_rva_t rva = start; !symbols.current()->getRegions().at_end() && !withLine &&
                                        rva < start + symbol->getRegions().current()->getLength();
                 ++rva) {
                const ISourceLocation::Ptr location = symbol->getSourceLocation(rva);
                const ISourceFile::Ptr file = location ? location->getSourceFile() : nullptr;
                withLine = location && location->getLine() > 0 && file &&
                           std::string(file->getSourceFileName()) == expected.sourceFile;
            }
        }
        EXPECT_TRUE(withLine) << expected.method;
    }
}

// At each stretch the JVM described, the library names the same methods,
// nested the same way, on the same lines.
TEST_F(WorkloadTrace, InlineChainsAreTheJvmsOwn) {
    ASSERT_EQ(0, s_run.status) << s_run.err;
    const std::vector<Described> view = readJvmView(s_workDir + "/view");
    std::size_t nested = 0, wrong = 0;
    for (const Described& described : view) {
        nested += described.frames.size() > 2;
        for (std::uint64_t address : {described.start, described.end - 1}) {
            const std::vector<Frame> chain = chainAt(address, described.loadTime);
            if (chain == described.frames)
                continue;
            if (++wrong <= 5)
                ADD_FAILURE() << std::hex << "at 0x" << address << std::dec << " the JVM says" << described.frames
                              << ", the trace says" << chain;
        }
    }
    EXPECT_EQ(0u, wrong) << "of " << 2 * view.size() << " addresses";
    EXPECT_GT(nested, 100u) << "stretches with inlines nested two deep";
}

struct BadOptions {
    const char* name;
    std::string text;
};

void PrintTo(const BadOptions& value, std::ostream* out) { *out << value.name; }

// The samples of perf record -k mono in compiled Java code are named at
// their time, although the JVM reports its code late: with load times at the
// arrival of the events some 0.3 % to 2 % stay unnamed; the goal is 99.5 %,
// and dated back, all are named.
TEST_F(WorkloadTrace, PerfSamplesInCompiledCodeAreNamed) {
    if (std::system("perf record -q -e cpu-clock -o /dev/null -- true >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "perf cannot record on this machine (perf_event_open refused, or no perf for this kernel)";
    const std::string workDir = s_workDir + "/perf";
    std::filesystem::create_directories(workDir);
    const JavaRun run = runWorkload("dir=" + workDir + "/trace,host=" + kHost, workDir, 20,
                                    "perf record -q -e cpu-clock -k mono -o " + workDir + "/perf.data --");
    ASSERT_EQ(0, run.status) << run.err;
    ASSERT_EQ(0, std::system(("perf script -i " + workDir + "/perf.data --ns -F pid,time,ip >" + workDir +
                              "/samples 2>/dev/null")
                                 .c_str()));
    const boost::intrusive_ptr<ISymbolResolver> resolver = open<ISymbolResolver>(workDir + "/trace");
    const boost::intrusive_ptr<IJitLoader> loader = open<IJitLoader>(workDir + "/trace");
    ASSERT_TRUE(resolver && loader);
    std::vector<std::pair<std::uint64_t, std::uint64_t>> compiled; // address ranges of Java methods, at any time
    for (auto symbols = resolver->getSymbols(); !symbols.at_end(); symbols.next())
        for (auto regions = symbols.current()->getRegions(); !regions.at_end(); regions.next())
            if (std::string(symbols.current()->getModule()->getFilePath()) == "[Compiled Java code]")
                compiled.emplace_back(regions.current()->getStartVirtualAddress(),
                                      regions.current()->getStartVirtualAddress() + regions.current()->getLength());
    u32_t hostId = 0;
    loader->getHostIdByName(kHost, &hostId);
    std::size_t inCompiledCode = 0, named = 0;
    std::istringstream samples(readText(workDir + "/samples"));
    std::uint32_t pid = 0;
    std::string seconds, nanoseconds;
    std::uint64_t ip = 0;
    while (samples >> pid && std::getline(samples >> std::ws, seconds, '.') &&
           std::getline(samples, nanoseconds, ':') && samples >> std::hex >> ip >> std::dec) {
        if (std::none_of(compiled.begin(), compiled.end(),
                         [ip](const auto& range) { return ip >= range.first && ip < range.second; }))
            continue;
        ++inCompiledCode;
        jit_rva_t rva = 0;
        IModule::Ptr module;
        const std::uint64_t time = std::stoull(seconds) * 1000000000u + std::stoull(nanoseconds);
        named += loader->resolveJitPoint(time, ip, pid, hostId, &rva, module) == meSuccess && resolver->getSymbol(rva);
    }
    EXPECT_GT(inCompiledCode, 100u);
    EXPECT_GE(named, inCompiledCode * 999 / 1000) << named << " of " << inCompiledCode << " samples named";
}

// Attached to a running JVM, the agent writes the code compiled so far with
// load times that also cover the samples taken before it came.
TEST(AttachedAgent, WritesTheCodeCompiledBeforeIt) {
    const std::string workDir = temporaryDirectory();
    const pid_t java = ::fork();
    ASSERT_GE(java, 0);
    if (java == 0) {
        const std::string command = std::string("exec env ") + KORVANE_TEST_JAVA + " -cp " + KORVANE_TEST_WORKLOAD +
                                    " korvane.workload.Workload 300 >" + workDir + "/out 2>" + workDir + "/err";
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::usleep(700000);
    timespec attached = {};
    ::clock_gettime(CLOCK_MONOTONIC, &attached);
    const std::string attach = std::string(KORVANE_TEST_JCMD) + " " + std::to_string(java) + " JVMTI.agent_load " +
                               KORVANE_TEST_AGENT + " '\"dir=" + workDir + "/trace,host=" + kHost +
                               "\"' >/dev/null 2>&1";
    EXPECT_EQ(0, std::system(attach.c_str()));
    int status = -1;
    ASSERT_EQ(java, ::waitpid(java, &status, 0));
    EXPECT_EQ(0, status) << readText(workDir + "/err");

    const boost::intrusive_ptr<ISymbolResolver> resolver = open<ISymbolResolver>(workDir + "/trace");
    ASSERT_TRUE(resolver);
    const std::uint64_t attachTime = attached.tv_sec * 1000000000ull + attached.tv_nsec;
    std::size_t before = 0;
    bool interpreter = false; // generated at the JVM's start, so known only by asking for what exists
    for (auto symbols = resolver->getSymbols(); !symbols.at_end(); symbols.next()) {
        const std::string name = symbols.current()->getQualifiedMethodName();
        before += name.rfind("korvane::workload::", 0) == 0 && symbols.current()->getLoadTime() < attachTime;
        interpreter = interpreter || name == "Interpreter";
    }
    EXPECT_GT(before, 3u) << "workload methods dated before the attach";
    EXPECT_TRUE(interpreter);
    std::filesystem::remove_all(workDir);
}

class BadStart : public ::testing::TestWithParam<BadOptions> {};

TEST_P(BadStart, LeavesTheWorkloadRunningToItsEnd) {
    const std::string workDir = temporaryDirectory();
    const JavaRun run = runWorkload(GetParam().text, workDir, 1);
    EXPECT_EQ(0, run.status);
    EXPECT_NE(std::string::npos, run.out.find("checksum")) << run.out;
    EXPECT_NE(std::string::npos, run.err.find("korvane jvmagent: ")) << run.err;
    EXPECT_NE(std::string::npos, run.err.find("the JVM runs on without the agent")) << run.err;
    std::filesystem::remove_all(workDir);
}

INSTANTIATE_TEST_SUITE_P(Options, BadStart,
                         ::testing::Values(BadOptions{"NoOptions", ""}, BadOptions{"NoDirectory", "verbose"},
                                           BadOptions{"UnknownOption", "dir=/tmp/korvane-unused,colour=red"},
                                           BadOptions{"UnwritableDirectory", "dir=/proc/korvane-trace"}),
                         [](const ::testing::TestParamInfo<BadOptions>& info) { return info.param.name; });

} // namespace
