// Sample queries from many threads allocate nothing when logging is off.
#include "test_support.h"
#include "trace_builder.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

namespace {

std::atomic<unsigned long> g_allocations(0);

} // namespace

// Counted for the whole of this test program; everything else passes through.
// The whole unaligned family is replaced, so that every pair stays matched.
void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

using namespace korvane_3_10;
using korvane_test::inlineAt;
using korvane_test::LogCapture;
using korvane_test::methodAt;
using korvane_test::PathList;
using korvane_test::profilerTrace;
using korvane_test::TempDir;

const u32_t kMethods = 64;
const u32_t kLength = 0x40;

address_t addressOf(u32_t method) { return 0x400000 + kLength * method; }

TEST(QueryAllocationTest, HitsAndMissesAllocateNothingBeyondTheirResults) {
    TempDir dir;
    korvane_tracewriter::TraceWriter trace = profilerTrace();
    for (u32_t method = 0; method < kMethods; ++method) {
        trace.loadV3(methodAt(method + 1, addressOf(method), kLength, 10, "m" + std::to_string(method)));
        trace.inlineLoad(inlineAt(1000 + method, method + 1, addressOf(method) + 0x10, 0x10, 10, 9));
    }
    trace.loadV3(methodAt(500, addressOf(0) + 0x20, kLength, 30, "late"));
    dir.write("h.3.jit", trace);

    PathList resolverPaths({dir.str()});
    boost::intrusive_ptr<ISymbolFileLocator> noLocator;
    const boost::intrusive_ptr<ISymbolResolver> resolver = ISymbolResolver::create(resolverPaths.iterator(), noLocator);
    PathList loaderPaths({dir.str()});
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
    ASSERT_EQ(meSuccess, loader->resolveJitPoint(20, addressOf(1), 3, hostId, &jitRva, module));

    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    std::atomic<int> failures(0);
    std::atomic<bool> go(false);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([&, thread] {
            while (!go.load())
                std::this_thread::yield();
            ISymbol::Ptr symbol;
            IModule::Ptr found;
            for (u32_t step = 0; step < 4 * kMethods; ++step) {
                const u32_t method = (step + 13 * thread) % kMethods;
                const jit_rva_t start = symbols[method]->getStartJitRva();
                symbol = resolver->getSymbol(start + 0x18);
                const ICodeRegion::Ptr inlined = regions[method]->getInlinedCodeRegion(start + 0x18);
                jit_rva_t callee = 0;
                jit_rva_t sample = 0;
                address_t address = 0;
                u32_t pid = 0;
                if (!symbol || !inlined || symbol->getVirtualAddress(start + 1, &address) != meSuccess ||
                    symbol->getPid(start, pid) != meSuccess ||
                    resolver->getCalleeRegion(start, addressOf((method + 1) % kMethods), &callee) != meSuccess)
                    ++failures;
                // Misses on every road, whose messages must not be built.
                if (resolver->getSymbol(0) || resolver->getSymbol(~jit_rva_t(0)) ||
                    resolver->getCalleeRegion(start, 0x10, &callee) == meSuccess ||
                    loader->resolveJitPoint(5, addressOf(method), 3, hostId, &sample, found) == meSuccess ||
                    loader->resolveJitPoint(40, addressOf(0), 3, hostId, &sample, found) == meSuccess ||
                    loader->resolveJitPoint(20, 0x10, 3, hostId, &sample, found) == meSuccess)
                    ++failures;
                if (loader->resolveJitPoint(20, addressOf(method) + 2, 3, hostId, &sample, found) != meSuccess)
                    ++failures;
            }
        });
    // Counted from the moment that all threads stand ready.
    const unsigned long before = g_allocations.load();
    go.store(true);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(before, g_allocations.load());
}

} // namespace
