// What the test program asks of operator new: how many requests, and the largest while watched.
#include "allocation_watch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<unsigned long> g_allocations(0);
std::atomic<bool> g_watchLargest(false);
std::atomic<std::size_t> g_largest(0);

void* allocate(std::size_t size) noexcept {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (g_watchLargest.load(std::memory_order_relaxed)) {
        std::size_t largest = g_largest.load();
        while (size > largest && !g_largest.compare_exchange_weak(largest, size)) {
        }
    }
    return std::malloc(size ? size : 1);
}

} // namespace

namespace korvane_test {

unsigned long allocationCount() { return g_allocations.load(); }

void watchLargestAllocation() {
    g_largest = 0;
    g_watchLargest = true;
}

std::size_t largestAllocation() { return g_largest.load(); }

} // namespace korvane_test

// The whole unaligned family is replaced, so that every pair stays matched, and kept out of line, so that
// the compiler doesn't pair an inlined malloc() or free() with the other side.
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (void* memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}
__attribute__((noinline)) void* operator new[](std::size_t size) { return operator new(size); }
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
__attribute__((noinline)) void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
