// Queries of both front ends from many threads at once, over real trace directories,
// and what they allocate.
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<unsigned long> g_allocations(0);

} // namespace

// Counted for the whole of this test program; everything else passes through.
// The whole unaligned family is replaced, so that every pair stays matched, and
// kept out of line, so that the compiler doesn't pair an inlined malloc() or
// free() with the other side.
__attribute__((noinline)) void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

__attribute__((noinline)) void* operator new[](std::size_t size) { return operator new(size); }

__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

__attribute__((noinline)) void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

using namespace korvane_3_10;
using korvane_test::inlineAt;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

const u32_t kProcesses = 4;
const u32_t kMethods = 120;
const u32_t kLength = 0x40;
const int kThreads = 4;

address_t addressOf(u32_t process, u32_t method) { return 0x100000 * process + kLength * method; }

std::string nameOf(u32_t process, u32_t method) {
    return "p" + std::to_string(process) + "m" + std::to_string(method);
}

// Processes 1 to kProcesses of host "h", each with kMethods methods side by
// side from time 10 and an inline in every fourth.
class Corpus {
public:
    Corpus() {
        for (u32_t process = 1; process <= kProcesses; ++process) {
            korvane_tracewriter::TraceWriter trace = profilerTrace();
            for (u32_t method = 0; method < kMethods; ++method) {
                trace.loadV3(methodAt(method + 1, addressOf(process, method), kLength, 10, nameOf(process, method)));
                if (method % 4 == 0)
                    trace.inlineLoad(inlineAt(1000 + method, method + 1, addressOf(process, method) + 0x10, 0x10, 10,
                                              500 + method));
            }
            m_files.push_back(m_dir.write("h." + std::to_string(process) + ".jit", trace));
        }
    }

    std::vector<std::string> paths() const { return {m_dir.str()}; }
    const std::string& file(u32_t process) const { return m_files[process - 1]; }

private:
    TempDir m_dir;
    std::vector<std::string> m_files;
};

// Runs the work on kThreads threads that all start at the same moment; the
// last one to arrive runs atStart while the others wait.
void runTogether(const std::function<void(int)>& work, const std::function<void()>& atStart = [] {}) {
    std::atomic<int> waiting(kThreads);
    std::atomic<bool> released(false);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            if (waiting.fetch_sub(1) == 1) {
                atStart();
                released.store(true);
            }
            while (!released.load())
                std::this_thread::yield();
            work(thread);
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(ResolverConcurrencyTest, QueriesFromManyThreadsAgreeWithTheTables) {
    const Corpus corpus;
    PathList paths(corpus.paths());
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    const boost::intrusive_ptr<ISymbolResolver> resolver = ISymbolResolver::create(paths.iterator(), noLocator);
    ASSERT_TRUE(resolver);
    std::map<std::string, ISymbol::Ptr> byName;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next())
        byName[walk.current()->getMethodName()] = walk.current();
    ASSERT_EQ(kProcesses * kMethods, byName.size());

    // Logging stays off: the logger's own locks would order the threads and hide races.
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::atomic<int> failures(0);
    runTogether([&](int thread) {
        for (u32_t step = 0; step < kProcesses * kMethods; ++step) {
            // Threads walk the methods from different places, so the converter
            // is first asked for by all of them at once.
            const u32_t index = (step + thread * 37) % (kProcesses * kMethods);
            const u32_t process = index / kMethods + 1;
            const u32_t method = index % kMethods;
            const ISymbol::Ptr& expected = byName.at("App::" + nameOf(process, method));
            const jit_rva_t start = expected->getStartJitRva();
            jit_rva_t jitRva = 0;
            if (resolver->translateToJitRva(method + 1, addressOf(process, method) + 3, corpus.file(process).c_str(),
                                            &jitRva) != meSuccess ||
                jitRva != start + 3)
                ++failures;
            const ISymbol::Ptr symbol = resolver->getSymbol(start + 0x15);
            if (symbol != expected)
                ++failures;
            const ISourceLocation::Ptr line = symbol ? symbol->getSourceLocation(start + 0x15) : nullptr;
            if (!line || line->getLine() != 101)
                ++failures;
            jit_rva_t callee = 0;
            if (method + 1 < kMethods &&
                (resolver->getCalleeRegion(start, addressOf(process, method + 1), &callee) != meSuccess ||
                 callee != start + kLength))
                ++failures;
            if (step % 64 == 0) {
                u32_t count = 0;
                for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next())
                    count += walk.current() ? 1 : 0;
                if (count != kProcesses * kMethods)
                    ++failures;
            }
        }
    });
    EXPECT_EQ(0, failures.load());
}

// All threads ask for process 1 at once and then for each of its methods.
int queryOneProcessTogether(const Corpus& corpus) {
    PathList paths(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(paths.iterator());
    u32_t hostId = 0;
    if (!loader || loader->getHostIdByName("h", &hostId) != meSuccess)
        return 1;
    std::atomic<int> failures(0);
    runTogether([&](int thread) {
        for (u32_t method = 0; method < kMethods; ++method) {
            const u32_t probe = (method + thread * 11) % kMethods;
            jit_rva_t jitRva = 0;
            IModule::Ptr module;
            if (loader->resolveJitPoint(20, addressOf(1, probe) + 5, 1, hostId, &jitRva, module) != meSuccess ||
                !module || module->getFilePath() != "/opt/app/lib" + nameOf(1, probe) + ".so")
                ++failures;
        }
    });
    return failures.load();
}

TEST(ResolverConcurrencyTest, LoaderDecodesAProcessOnceForManyThreads) {
    const Corpus corpus;
    {
        const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
        EXPECT_EQ(0, queryOneProcessTogether(corpus));
    }
    // Counted through the log, whose locks order the threads this time.
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(0, queryOneProcessTogether(corpus));
    EXPECT_EQ(kMethods, log.count("JIT TRACE: MethodLoad"));
}

// Each thread brings in its own process, then goes on querying it until all
// threads are through their first query, so that queries run beside reading.
TEST(ResolverConcurrencyTest, LoaderReadsDifferentProcessesBesideQueries) {
    const Corpus corpus;
    PathList paths(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(paths.iterator());
    ASSERT_TRUE(loader);
    u32_t hostId = 0;
    ASSERT_EQ(meSuccess, loader->getHostIdByName("h", &hostId));

    // Logging stays off: the logger's own locks would order the threads and hide races.
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::atomic<int> failures(0);
    std::atomic<int> answered(0);
    std::vector<std::vector<jit_rva_t> > seen(kThreads, std::vector<jit_rva_t>(kMethods));
    runTogether([&](int thread) {
        const u32_t process = static_cast<u32_t>(thread) % kProcesses + 1;
        bool first = true;
        do {
            for (u32_t method = 0; method < kMethods; ++method) {
                IModule::Ptr module;
                if (loader->resolveJitPoint(20, addressOf(process, method), process, hostId, &seen[thread][method],
                                            module) != meSuccess)
                    ++failures;
                if (first)
                    ++answered;
                first = false;
            }
        } while (answered.load() < kThreads);
    });
    EXPECT_EQ(0, failures.load());
    for (int thread = 0; thread < kThreads; ++thread)
        for (u32_t method = 1; method < kMethods; ++method)
            EXPECT_EQ(seen[thread][0] + kLength * method, seen[thread][method]);
}

// With logging off, hits and misses of both front ends allocate nothing
// beyond the objects that they hand out.
TEST(ResolverConcurrencyTest, QueriesAllocateNothingWithLoggingOff) {
    const Corpus corpus;
    PathList resolverPaths(corpus.paths());
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    const boost::intrusive_ptr<ISymbolResolver> resolver = ISymbolResolver::create(resolverPaths.iterator(), noLocator);
    PathList loaderPaths(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(loaderPaths.iterator());
    ASSERT_TRUE(resolver && loader);
    std::vector<ISymbol::Ptr> symbols;
    std::vector<ICodeRegion::Ptr> regions;
    for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next()) {
        symbols.push_back(walk.current());
        regions.push_back(walk.current()->getRegions().current());
    }
    u32_t hostId = 0;
    jit_rva_t jitRva = 0;
    IModule::Ptr module;
    ASSERT_EQ(meSuccess, loader->getHostIdByName("h", &hostId));
    ASSERT_EQ(meSuccess, loader->resolveJitPoint(20, addressOf(1, 0), 1, hostId, &jitRva, module));

    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::atomic<int> failures(0);
    unsigned long before = 0;
    const auto work = [&](int thread) {
        for (u32_t step = 0; step < 2 * kMethods; ++step) {
            // The methods of process 1, in which every fourth has an inline at 0x10.
            const u32_t method = (step + 13 * thread) % kMethods;
            const jit_rva_t start = symbols[method]->getStartJitRva();
            const ISymbol::Ptr symbol = resolver->getSymbol(start + 0x18);
            address_t address = 0;
            u32_t pid = 0;
            jit_rva_t callee = 0;
            jit_rva_t sample = 0;
            IModule::Ptr found;
            if (symbol != symbols[method] || symbol->getVirtualAddress(start + 1, &address) != meSuccess ||
                symbol->getPid(start, pid) != meSuccess ||
                (method % 4 == 0) != static_cast<bool>(regions[method]->getInlinedCodeRegion(start + 0x18)) ||
                loader->resolveJitPoint(20, addressOf(1, method) + 2, 1, hostId, &sample, found) != meSuccess)
                ++failures;
            // Misses on every road, whose messages must not be built.
            if (resolver->getSymbol(0) || resolver->getSymbol(~jit_rva_t(0)) ||
                resolver->getCalleeRegion(start, 0x10, &callee) == meSuccess ||
                loader->resolveJitPoint(5, addressOf(1, method), 1, hostId, &sample, found) == meSuccess ||
                loader->resolveJitPoint(20, 0x10, 1, hostId, &sample, found) == meSuccess ||
                loader->resolveJitPoint(20, 0x10, 1, hostId + 1, &sample, found) == meSuccess)
                ++failures;
        }
    };
    runTogether(work, [&] { before = g_allocations.load(); });
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(before, g_allocations.load());
}

} // namespace
