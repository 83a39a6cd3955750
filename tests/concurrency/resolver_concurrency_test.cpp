// Queries of both front ends from many threads at once, over real trace directories,
// and what they allocate.
#include "allocation_watch.h"
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace korvane_3_10;
using korvane_test::Corpus;
using korvane_test::LogCapture;

const u32_t kProcesses = 4;
const u32_t kMethods = 120;
const u32_t kLength = 0x40;
const int kThreads = 4;

// Every fourth method has an inline over its second quarter.
Corpus makeCorpus() { return Corpus({"h", kProcesses, kMethods, kLength, 4, 0}); }

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
    const Corpus corpus = makeCorpus();
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus.paths());
    ASSERT_TRUE(resolver);
    const std::map<std::string, ISymbol::Ptr> byName = korvane_test::symbolsByName(*resolver);
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
            const ISymbol::Ptr& expected = byName.at("App::" + Corpus::nameOf(process, method));
            const jit_rva_t start = expected->getStartJitRva();
            jit_rva_t jitRva = 0;
            jit_rva_t callee = 0;
            const ISymbol::Ptr symbol = resolver->getSymbol(start + 0x15);
            const ISourceLocation::Ptr line = symbol ? symbol->getSourceLocation(start + 0x15) : nullptr;
            if (resolver->translateToJitRva(method + 1, corpus.addressOf(process, method) + 3,
                                            corpus.file(process).c_str(), &jitRva) != meSuccess ||
                jitRva != start + 3 || symbol != expected || !line || line->getLine() != 101 ||
                (method + 1 < kMethods &&
                 (resolver->getCalleeRegion(start, corpus.addressOf(process, method + 1), &callee) != meSuccess ||
                  callee != start + kLength)))
                ++failures;
            if (step % 64 == 0) {
                u32_t count = 0;
                for (auto walk = resolver->getSymbols(); !walk.at_end(); walk.next())
                    count += walk.current() ? 1 : 0;
                failures += count != kProcesses * kMethods;
            }
        }
    });
    EXPECT_EQ(0, failures.load());
}

// Threads 0 and 1 bring in process 1 with their first query, threads 2 and 3
// process 2; all go on querying until every thread is through its first query,
// so that queries run beside reading. Returns the failures.
int queryTwoProcessesTogether(const Corpus& corpus) {
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus.paths());
    u32_t hostId = 0;
    if (!loader || loader->getHostIdByName("h", &hostId) != meSuccess)
        return 1;
    std::atomic<int> failures(0);
    std::atomic<int> answered(0);
    runTogether([&](int thread) {
        const u32_t process = static_cast<u32_t>(thread) / 2 + 1;
        bool first = true;
        do {
            jit_rva_t start = 0;
            for (u32_t method = 0; method < kMethods; ++method) {
                const u32_t probe = (method + thread * 11) % kMethods;
                jit_rva_t jitRva = 0;
                IModule::Ptr module;
                if (loader->resolveJitPoint(20, corpus.addressOf(process, probe) + 5, process, hostId, &jitRva,
                                            module) != meSuccess ||
                    !module || module->getFilePath() != "/opt/app/lib" + Corpus::nameOf(process, probe) + ".so")
                    ++failures;
                if (method == 0)
                    start = jitRva - 5 - kLength * probe;
                else if (jitRva != start + 5 + kLength * probe)
                    ++failures;
                if (first)
                    ++answered;
                first = false;
            }
        } while (answered.load() < kThreads);
    });
    return failures.load();
}

// Methods come from one pool for the whole process: resolvers read and let go on many threads
// at once, each with every method of the traces, and the last references dropped on other threads.
TEST(ResolverConcurrencyTest, ResolversReadAndDroppedOnManyThreads) {
    const Corpus corpus = makeCorpus();
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::vector<std::map<std::string, ISymbol::Ptr>> kept(kThreads);
    std::atomic<int> failures(0);
    runTogether([&](int thread) {
        for (int round = 0; round < 3; ++round) {
            const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus.paths());
            if (!resolver) {
                ++failures;
                return;
            }
            kept[thread] = korvane_test::symbolsByName(*resolver);
            failures += kept[thread].size() != kProcesses * kMethods;
        }
    });
    EXPECT_EQ(0, failures.load());
    runTogether([&](int thread) { kept[(thread + 1) % kThreads].clear(); });
}

TEST(ResolverConcurrencyTest, LoaderReadsEachProcessOnceBesideQueries) {
    const Corpus corpus = makeCorpus();
    {
        const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
        EXPECT_EQ(0, queryTwoProcessesTogether(corpus));
    }
    // Counted through the log, whose locks order the threads this time.
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ(0, queryTwoProcessesTogether(corpus));
    EXPECT_EQ(2 * kMethods, log.count("JIT TRACE: MethodLoad"));
}

// With logging off, hits and misses of both front ends allocate nothing
// beyond the objects that they hand out.
TEST(ResolverConcurrencyTest, QueriesAllocateNothingWithLoggingOff) {
    const Corpus corpus = makeCorpus();
    const boost::intrusive_ptr<ISymbolResolver> resolver = korvane_test::resolverOver(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = korvane_test::loaderOver(corpus.paths());
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
    ASSERT_EQ(meSuccess, loader->resolveJitPoint(20, corpus.addressOf(1, 0), 1, hostId, &jitRva, module));

    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::atomic<int> failures(0);
    unsigned long before = 0;
    const auto work = [&](int thread) {
        for (u32_t step = 0; step < 2 * kMethods; ++step) {
            // The methods of process 1, in which every fourth has an inline at 0x10.
            const u32_t method = (step + 13 * thread) % kMethods;
            const address_t address = corpus.addressOf(1, method);
            const jit_rva_t start = symbols[method]->getStartJitRva();
            const ISymbol::Ptr symbol = resolver->getSymbol(start + 0x18);
            address_t virtualAddress = 0;
            u32_t pid = 0;
            jit_rva_t callee = 0;
            jit_rva_t sample = 0;
            IModule::Ptr found;
            if (symbol != symbols[method] || symbol->getVirtualAddress(start + 1, &virtualAddress) != meSuccess ||
                symbol->getPid(start, pid) != meSuccess ||
                (method % 4 == 0) != static_cast<bool>(regions[method]->getInlinedCodeRegion(start + 0x18)) ||
                loader->resolveJitPoint(20, address + 2, 1, hostId, &sample, found) != meSuccess)
                ++failures;
            // Misses on every road, whose messages must not be built.
            if (resolver->getSymbol(0) || resolver->getSymbol(~jit_rva_t(0)) ||
                resolver->getCalleeRegion(start, 0x10, &callee) == meSuccess ||
                loader->resolveJitPoint(5, address, 1, hostId, &sample, found) == meSuccess ||
                loader->resolveJitPoint(20, 0x10, 1, hostId, &sample, found) == meSuccess ||
                loader->resolveJitPoint(20, 0x10, 1, hostId + 1, &sample, found) == meSuccess)
                ++failures;
        }
    };
    runTogether(work, [&] { before = korvane_test::allocationCount(); });
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(before, korvane_test::allocationCount());
}

} // namespace
