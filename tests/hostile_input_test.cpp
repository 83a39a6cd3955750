// Inputs made to crash, hang or exhaust the library: deep inline chains, entries
// that are no regular files, unlistable directories, records that claim far more
// than they hold, damaged processes asked again and again, and many small traces.
// Every odd file is made here, in a temporary directory.
#include "allocation_watch.h"
#include "trace_builder.h"
#include "trace_decoding_support.h"

#include "jitreader/jit_file_decoder.h"
#include "jitreader/method_report.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace korvane_3_10;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;
using korvane_tracewriter::Bytes;
using korvane_tracewriter::InlineRecord;
using korvane_tracewriter::TraceWriter;
namespace jt = korvane_3_10::jittrace;

// ---------------------------------------------------------------------------
// Deep inline chains

const u32_t kDepth = 16000;
const u64_t kOuterStart = 0x7f0000100000;
const u32_t kOuterLength = 0x10000;

// Inline k: "inlined<k>" on line k, with one code byte.
InlineRecord inlineNumber(u32_t k, u32_t id, u32_t parentId, u64_t start, u32_t length) {
    InlineRecord record = korvane_test::inlineAt(id, parentId, start, length, 10, k);
    record.code.assign(1, 0xcc);
    record.methodName = "inlined" + std::to_string(k);
    return record;
}

korvane_tracewriter::LoadRecord outer(u32_t id) {
    korvane_tracewriter::LoadRecord record = methodAt(id, kOuterStart, kOuterLength, 10, "outer");
    record.ranges.front().code.assign(16, 0x90);
    record.nativeToSource = {{0, kOuterLength, 1}};
    return record;
}

// An agent without method ids: the method first, then each inline inside the one before: level k covers
// [start + k, end - k).
TraceWriter chainByAddress() {
    TraceWriter trace;
    trace.magic().loadV3(outer(0));
    for (u32_t k = 1; k <= kDepth; ++k)
        trace.inlineLoad(inlineNumber(k, 0, 0, kOuterStart + k, kOuterLength - 2 * k));
    return trace;
}

// The profiling agent: the deepest inline first, each naming the next one out as
// its parent, and the method last.
TraceWriter chainByIds() {
    TraceWriter trace = profilerTrace();
    for (u32_t k = kDepth; k >= 1; --k)
        trace.inlineLoad(inlineNumber(k, 1000 + k, k == 1 ? 1 : 1000 + k - 1, kOuterStart + k, kOuterLength - 2 * k));
    return trace.loadV3(outer(1));
}

// At the deepest address every level answers its own inline and line, outermost first.
void expectChainAtTheDeepestAddress(ISymbolResolver& resolver) {
    auto symbols = resolver.getSymbols();
    ASSERT_FALSE(symbols.at_end());
    const ISymbol::Ptr method = symbols.current();
    EXPECT_STREQ("App::outer", method->getMethodName());
    ICodeRegion::Ptr region = method->getRegions().current();
    const jit_rva_t deepest = region->getStartJitRva() + kDepth;
    EXPECT_EQ(method, resolver.getSymbol(deepest));
    for (u32_t k = 1; k <= kDepth; ++k) {
        const ISymbol::Ptr inlined = region->getInlinedSymbol(deepest);
        region = region->getInlinedCodeRegion(deepest);
        ASSERT_TRUE(inlined && region) << "level " << k;
        ASSERT_EQ("App::inlined" + std::to_string(k), inlined->getMethodName());
        const ISourceLocation::Ptr location = inlined->getSourceLocation(deepest);
        ASSERT_TRUE(location) << "level " << k;
        ASSERT_EQ(k, location->getLine());
    }
    EXPECT_FALSE(region->getInlinedSymbol(deepest));
}

TEST(HostileInputTest, SixteenThousandNestedInlinesAreResolved) {
    const struct {
        const char* name;
        TraceWriter trace;
    } cases[] = {{"by address", chainByAddress()}, {"by ids, deepest first", chainByIds()}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        dir.write("h.1.jit", c.trace);
        const auto resolver = korvane_test::resolverOver({dir.str()});
        ASSERT_TRUE(resolver);
        expectChainAtTheDeepestAddress(*resolver);

        // The loader builds the same chain and answers the method's module at its deepest address.
        const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({dir.str()});
        ASSERT_TRUE(loader);
        jit_rva_t jitRva = 0;
        IModule::Ptr module;
        EXPECT_EQ(meSuccess, loader->resolveJitPoint(10, kOuterStart + kDepth, 1, 1, &jitRva, module));
        ASSERT_TRUE(module);
        EXPECT_STREQ("/opt/app/libouter.so", module->getFilePath());
    }
}

// As many inlines side by side in one method: each found by address, or by the
// id of the method, at its own jit RVA.
TEST(HostileInputTest, SixteenThousandInlinesOfOneMethodAreResolved) {
    for (const bool byIds : {false, true}) {
        SCOPED_TRACE(byIds ? "by ids" : "by address");
        TraceWriter trace = byIds ? profilerTrace() : TraceWriter().magic();
        trace.loadV3(outer(byIds ? 1 : 0));
        for (u32_t k = 0; k < kDepth; ++k)
            trace.inlineLoad(inlineNumber(k, byIds ? 1000 + k : 0, byIds ? 1 : 0, kOuterStart + 2 * k, 2));
        TempDir dir;
        dir.write("h.1.jit", trace);
        const auto resolver = korvane_test::resolverOver({dir.str()});
        ASSERT_TRUE(resolver);
        const ICodeRegion::Ptr region = resolver->getSymbols().current()->getRegions().current();
        for (u32_t k = 0; k < kDepth; k += 997) {
            const ISymbol::Ptr inlined = region->getInlinedSymbol(region->getStartJitRva() + 2 * k + 1);
            ASSERT_TRUE(inlined) << k;
            EXPECT_EQ("App::inlined" + std::to_string(k), inlined->getMethodName());
        }
    }
}

// The report of a method that the INFO log repeats at every inline it takes
// shows 64 levels and 1,000 inlines at most, so that it stays in proportion.
TEST(HostileInputTest, TheMethodReportOfInlinesIsBounded) {
    const auto reportOf = [](const TraceWriter& trace) {
        TempDir dir;
        dir.write("h.1.jit", trace);
        const auto resolver = korvane_test::resolverOver({dir.str()});
        return resolver ? dumpRegions(static_cast<const JitMethod&>(*resolver->getSymbols().current())) : "";
    };
    const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };

    TraceWriter deep = TraceWriter().magic().loadV3(outer(0));
    for (u32_t k = 1; k <= 200; ++k)
        deep.inlineLoad(inlineNumber(k, 0, 0, kOuterStart + k, kOuterLength - 2 * k));
    const std::string deepReport = reportOf(deep);
    EXPECT_EQ(1 + 64, lines(deepReport));
    EXPECT_NE(std::string::npos, deepReport.find(std::string(256 - 1, ' ') + "#1 App::inlined64 (method id = 0x0, "));

    TraceWriter wide = TraceWriter().magic().loadV3(outer(0));
    for (u32_t k = 0; k < 1500; ++k)
        wide.inlineLoad(inlineNumber(k, 0, 0, kOuterStart + k, 1));
    const std::string wideReport = reportOf(wide);
    const std::string last =
        "   #1000 App::inlined999 (method id = 0x0, ip range = 0x7f00001003e7-0x7f00001003e8)\n    ...";
    EXPECT_EQ(1 + 1000 + 1, lines(wideReport));
    EXPECT_EQ(wideReport.size() - last.size(), wideReport.find(last));
}

// ---------------------------------------------------------------------------
// Entries that are no regular files, and directories that can't be listed

// The message of a WARN line about a skipped entry, as the library words it.
std::string skipped(const std::string& path, const std::string& reason) {
    return "Skipped jit file " + path + " because " + reason + ", at file: src/jitreader/jit_files_manager.cpp:";
}

TEST(HostileInputTest, OnlyRegularFilesAreCataloguedAndTheRestIsNamedInAWarning) {
    TempDir root;
    const std::string d = root.mkdir("d");
    root.mkdir("elsewhere");
    root.write("d/h.1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "plain")));
    root.write("elsewhere/real", profilerTrace().loadV3(methodAt(1, 0x2000, 0x40, 10, "linked")));
    const std::string linked = root.file("d/h.2.jit");
    ASSERT_EQ(0, symlink("../elsewhere/real", linked.c_str()));
    const std::string dangling = root.file("d/h.3.jit");
    ASSERT_EQ(0, symlink("../elsewhere/missing", dangling.c_str()));
    const std::string fifo = root.file("d/h.4.jit");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::string socketPath = root.file("d/h.5.jit");
    ASSERT_TRUE(korvane_test::makeSocket(socketPath));
    const std::string device = root.file("d/h.6.jit");
    ASSERT_EQ(0, symlink("/dev/null", device.c_str()));
    const std::string loop = root.file("d/h.7.jit");
    ASSERT_EQ(0, symlink("h.7.jit", loop.c_str()));
    const std::string directory = root.mkdir("d/h.8.jit");
    const std::vector<std::string> warnings = {
        skipped(dangling, "it is a link that leads nowhere, not a regular file"),
        skipped(fifo, "it is a FIFO, not a regular file"),
        skipped(socketPath, "it is a socket, not a regular file"),
        skipped(device, "it is a device, not a regular file"),
        skipped(loop, "its type can't be read: Too many levels of symbolic links"),
        skipped(directory, "it is a directory, not a regular file")};

    // Each front end names every skipped entry once.
    LogCapture log(log4cplus::WARN_LOG_LEVEL);
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver({d});
    ASSERT_TRUE(resolver);
    EXPECT_EQ(std::vector<std::string>({"App::plain", "App::linked"}), korvane_test::methodNames(*resolver));
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({d});
    ASSERT_TRUE(loader);
    jit_rva_t jitRva = 0;
    IModule::Ptr module;
    EXPECT_EQ(meSuccess, loader->resolveJitPoint(10, 0x2004, 2, 1, &jitRva, module));
    ASSERT_TRUE(module);
    EXPECT_STREQ("/opt/app/liblinked.so", module->getFilePath());
    EXPECT_EQ(std::vector<u32_t>({1, 2}), korvane_test::processesOver({d}));
    const std::vector<std::string> lines = log.messages(log4cplus::WARN_LOG_LEVEL);
    ASSERT_EQ(3 * warnings.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(0u, lines[i].find(warnings[i % warnings.size()])) << lines[i];
    EXPECT_TRUE(log.messages(log4cplus::ERROR_LOG_LEVEL).empty());
}

typedef skeinkit2::generic_iterator_t<const char*> Paths;

// Each front end's create, and whether it made one.
const struct Front {
    const char* name;
    bool (*create)(Paths&);
} kFronts[] = {{"symbol resolver",
                [](Paths& paths) {
                    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
                    return bool(ISymbolResolver::create(paths, noLocator));
                }},
               {"jit loader", [](Paths& paths) { return bool(IJitLoader::create(paths)); }},
               {"process list", [](Paths& paths) { return bool(IJitProcesses::create(paths)); }}};

// Runs the work with the file system rights of user "nobody" when the test runs
// as root, for whom no mode bit stops a listing.
void withoutRootRights(const std::function<void()>& work) {
    if (geteuid() != 0) {
        work();
        return;
    }
    const passwd* nobody = getpwnam("nobody");
    ASSERT_EQ(0, seteuid(nobody ? nobody->pw_uid : 65534));
    struct Restore {
        ~Restore() {
            if (seteuid(0) != 0)
                std::abort();
        }
    } restore;
    work();
}

// Runs each front end's create over the paths, as "nobody" if asked; each must fail with one ERROR line that
// begins with the text.
void expectEachCreateFails(const std::function<Paths()>& paths, bool asNobody,
                           const std::function<std::string(const Front&)>& error) {
    for (const Front& front : kFronts) {
        SCOPED_TRACE(front.name);
        LogCapture log(log4cplus::WARN_LOG_LEVEL);
        Paths walk = paths();
        bool created = true;
        const std::function<void()> create = [&] { EXPECT_NO_THROW(created = front.create(walk)); };
        asNobody ? withoutRootRights(create) : create();
        EXPECT_FALSE(created);
        const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
        ASSERT_EQ(1u, errors.size());
        EXPECT_EQ(0u, errors.front().find(error(front))) << errors.front();
    }
}

TEST(HostileInputTest, ADirectoryThatCantBeListedMakesCreateReturnNullWithAnError) {
    TempDir root;
    const std::string locked = root.mkdir("locked");
    root.write("locked/h.1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "hidden")));
    ASSERT_EQ(0, chmod(locked.c_str(), 0311));
    bool listable = false;
    withoutRootRights([&] {
        if (DIR* listing = opendir(locked.c_str())) {
            listable = true;
            closedir(listing);
        }
    });
    if (listable) {
        chmod(locked.c_str(), 0755);
        GTEST_SKIP() << "this user may list a directory of mode 0311, so no listing fails here";
    }

    PathList paths({locked});
    expectEachCreateFails([&] { return paths.iterator(); }, true, [&](const Front&) {
        return "Couldn't list the directory " + locked + ": Permission denied, at file: ";
    });
    chmod(locked.c_str(), 0755);
}

// Paths of which the second one throws when it is read.
class BreakingPaths : public skeinkit2::iterator_impl_base_t<const char*, BreakingPaths> {
public:
    explicit BreakingPaths(std::string first) : m_first(std::move(first)) {}
    bool at_end() const override { return false; }
    const char* current() const override {
        if (m_index > 0)
            throw std::runtime_error("the host's iterator broke");
        return m_first.c_str();
    }
    void next() override { ++m_index; }

private:
    std::string m_first;
    int m_index = 0;
};

// Whatever is thrown inside a create ends it with null and an ERROR line, and
// what was built is released (the sanitizer build finds any leak).
TEST(HostileInputTest, AnExceptionInsideCreateBecomesNullAndAnErrorLine) {
    TempDir dir;
    dir.write("h.1.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "read")));
    expectEachCreateFails([&] { return Paths{BreakingPaths(dir.str())}; }, false, [](const Front& front) {
                              return std::string("Couldn't create the ") + front.name +
                                     ": the host's iterator broke, at file: ";
                          });
}

// ---------------------------------------------------------------------------
// Records that claim more than they hold

// A V3 record of 35 bytes: its head claims 65,535 code ranges, and the one
// range header that follows, of length 0, claims 0x100 code bytes that aren't there.
Bytes claimsManyRanges() {
    Bytes payload = {1, 0, 0, 0, 0, 0, 0, 6, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    const Bytes range = {0, 0x10, 0, 0, 0, 0x7f, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0};
    payload.insert(payload.end(), range.begin(), range.end());
    return payload;
}

TEST(HostileInputTest, ARecordClaimingManyRangesReportsItsOverrunOnce) {
    ASSERT_EQ(35u, claimsManyRanges().size());
    const korvane_test::Decoded decoded =
        korvane_test::decodeLast(profilerTrace().sized(jt::FunctionLoad64_v3, claimsManyRanges()));
    EXPECT_FALSE(decoded.accepted);
    EXPECT_EQ(1u, decoded.assertions);

    // A 2.7 KB file of them: two lines each (the overrun and the refusal).
    TraceWriter trace = profilerTrace();
    for (int i = 0; i < 75; ++i)
        trace.sized(jt::FunctionLoad64_v3, claimsManyRanges());
    TempDir dir;
    dir.write("h.1.jit", trace);
    LogCapture log(log4cplus::WARN_LOG_LEVEL);
    const auto resolver = korvane_test::resolverOver({dir.str()});
    ASSERT_TRUE(resolver);
    EXPECT_TRUE(resolver->getSymbols().at_end());
    EXPECT_EQ(75u, log.count("Assertion failed: bytesRead < traceSize"));
    EXPECT_EQ(75u, log.count("The bytes of the code are not supplied"));
    EXPECT_EQ(150u, log.messages().size());
}

TEST(HostileInputTest, ARecordAboveTheSizeLimitIsMalformedBeforeAnyMemoryIsTaken) {
    // A sparse file of 4 GiB whose first record claims 0xfffffff0 bytes, all of which are there.
    TempDir dir;
    const std::string path = dir.write("h.1.jit", TraceWriter().magic().raw({9, 0, 0, 0, 0xf0, 0xff, 0xff, 0xff}));
    ASSERT_EQ(0, truncate(path.c_str(), 16 + 0xfffffff0ll));

    korvane_test::watchLargestAllocation();
    {
        LogCapture log(log4cplus::WARN_LOG_LEVEL);
        JitFileDecoder decoder(path, 1, 1, 1, dmFull);
        JitFileDecoder::Record record;
        EXPECT_EQ(meSuccess, decoder.getNextRecord(record));
        EXPECT_EQ(meMalformedRecord, decoder.getNextRecord(record));
        const std::vector<std::string> errors = log.messages(log4cplus::ERROR_LOG_LEVEL);
        ASSERT_EQ(1u, errors.size());
        EXPECT_EQ(0u, errors.front().find("Couldn't read content of the jit trace because its size 0xfffffff0 is "
                                          "above the limit of 0x4000000 bytes, at file: "))
            << errors.front();
    }
    {
        LogCapture log(log4cplus::WARN_LOG_LEVEL);
        boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver({dir.str()});
        ASSERT_TRUE(resolver);
        EXPECT_TRUE(resolver->getSymbols().at_end());
        EXPECT_EQ(1u, log.count("Could not read jit file " + path));
    }
    EXPECT_LT(korvane_test::largestAllocation(), std::size_t(64) << 20) << "bytes asked for at once";
}

// ---------------------------------------------------------------------------
// A damaged process asked for again and again

TEST(HostileInputTest, ADamagedProcessIsReadAgainOnlyAfterOneOfItsFilesChanged) {
    TempDir dir;
    const TraceWriter whole =
        profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "first")).loadV3(methodAt(2, 0x2000, 0x40, 10, "last"));
    TraceWriter cut = whole;
    cut.cutOff(10);
    dir.write("h.7-1.jit", profilerTrace().loadV3(methodAt(3, 0x3000, 0x40, 10, "before")));
    const std::string damaged = dir.write("h.7-2.jit", cut);
    dir.write("h.8.jit", profilerTrace().loadV3(methodAt(1, 0x1000, 0x40, 10, "other")));
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver({dir.str()});
    ASSERT_TRUE(loader);

    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    // Each sample of process 7 and how many records it had decoded.
    const auto sample = [&](address_t address, korvane_error_t expected, std::size_t decoded) {
        log.clear();
        jit_rva_t jitRva = 0;
        IModule::Ptr module;
        EXPECT_EQ(expected, loader->resolveJitPoint(10, address, 7, 1, &jitRva, module));
        EXPECT_EQ(decoded, log.count("JIT TRACE: MethodLoad"));
    };
    {
        SCOPED_TRACE("first sample and the ones after it");
        sample(0x1004, meMalformedRecord, 3);
        for (int i = 0; i < 100; ++i)
            sample(0x1004, meMalformedRecord, 0);
    }
    {
        SCOPED_TRACE("another process is not concerned");
        jit_rva_t jitRva = 0;
        IModule::Ptr module;
        EXPECT_EQ(meSuccess, loader->resolveJitPoint(10, 0x1004, 8, 1, &jitRva, module));
    }
    {
        SCOPED_TRACE("a new modification time, same size");
        const timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, damaged.c_str(), times, 0));
        sample(0x1004, meMalformedRecord, 3);
        sample(0x1004, meMalformedRecord, 0);
    }
    {
        SCOPED_TRACE("the file made whole");
        whole.writeTo(damaged);
        sample(0x2004, meSuccess, 3);
        sample(0x3004, meSuccess, 0);
    }
}

// ---------------------------------------------------------------------------
// Many small traces

TEST(HostileInputTest, TenThousandOneMethodTracesAreRead) {
    const u32_t kTraces = 10000;
    // In memory where the system has such a directory: making and removing many
    // files on a disk can take longer than reading them.
    const bool inMemory = access("/dev/shm", W_OK | X_OK) == 0;
    TempDir dir(inMemory ? boost::filesystem::path("/dev/shm") : boost::filesystem::temp_directory_path());
    for (u32_t pid = 1; pid <= kTraces; ++pid)
        dir.write("h." + std::to_string(pid) + ".jit",
                  profilerTrace().loadV3(methodAt(1, 0x1000 + pid * 0x100, 0x40, 10, "m" + std::to_string(pid))));
    const auto resolver = korvane_test::resolverOver({dir.str()});
    ASSERT_TRUE(resolver);

    // Files are numbered in the order of their names; each method at its own jit RVA and process.
    std::size_t count = 0;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next()) {
        const ISymbol::Ptr method = walk.current();
        const ICodeRegion::Ptr region = method->getRegions().current();
        const u32_t pid = region->getProcessId();
        ASSERT_EQ("App::m" + std::to_string(pid), method->getMethodName());
        ASSERT_EQ(0x1000 + pid * 0x100, region->getStartVirtualAddress());
        ASSERT_EQ(method, resolver->getSymbol(region->getStartJitRva() + 0x3f));
        ++count;
    }
    EXPECT_EQ(kTraces, count);
}

} // namespace
