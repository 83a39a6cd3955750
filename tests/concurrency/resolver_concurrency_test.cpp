// Queries of both front ends from many threads at once, over real trace directories.
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

// Runs the work on kThreads threads that all start at the same moment.
void runTogether(const std::function<void(int)>& work) {
    std::atomic<int> waiting(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&waiting, &work, thread] {
            waiting.fetch_sub(1);
            while (waiting.load() > 0)
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

// Every thread asks for the same process first: it is decoded once.
TEST(ResolverConcurrencyTest, LoaderDecodesAProcessOnceForManyThreads) {
    const Corpus corpus;
    PathList paths(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(paths.iterator());
    ASSERT_TRUE(loader);
    u32_t hostId = 0;
    ASSERT_EQ(meSuccess, loader->getHostIdByName("h", &hostId));

    LogCapture log(log4cplus::INFO_LOG_LEVEL);
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
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(kMethods, log.count("JIT TRACE: MethodLoad"));
}

// Each thread brings in its own process while the others query theirs.
TEST(ResolverConcurrencyTest, LoaderReadsDifferentProcessesBesideQueries) {
    const Corpus corpus;
    PathList paths(corpus.paths());
    const boost::intrusive_ptr<IJitLoader> loader = IJitLoader::create(paths.iterator());
    ASSERT_TRUE(loader);
    u32_t hostId = 0;
    ASSERT_EQ(meSuccess, loader->getHostIdByName("h", &hostId));

    LogCapture log(log4cplus::INFO_LOG_LEVEL);
    std::atomic<int> failures(0);
    std::vector<std::vector<jit_rva_t> > seen(kThreads, std::vector<jit_rva_t>(kMethods));
    runTogether([&](int thread) {
        const u32_t process = static_cast<u32_t>(thread) % kProcesses + 1;
        for (u32_t method = 0; method < kMethods; ++method) {
            IModule::Ptr module;
            if (loader->resolveJitPoint(20, addressOf(process, method), process, hostId, &seen[thread][method],
                                        module) != meSuccess)
                ++failures;
        }
    });
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(kProcesses * kMethods, log.count("JIT TRACE: MethodLoad"));
    for (int thread = 0; thread < kThreads; ++thread)
        for (u32_t method = 1; method < kMethods; ++method)
            EXPECT_EQ(seen[thread][0] + kLength * method, seen[thread][method]);
}

} // namespace
