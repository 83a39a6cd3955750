// A program that spends its time 20 calls deep, for perf to sample with call chains.
#include <chrono>
#include <cstdlib>

namespace {

volatile unsigned long g_sink;

__attribute__((noinline)) void spin() {
    for (unsigned long i = 0; i < 100000; ++i)
        g_sink = g_sink + i * i;
}

// The empty asm after the call keeps it from becoming a jump, so every level keeps its frame.
__attribute__((noinline)) void descend(int depth) {
    if (depth == 0)
        spin();
    else
        descend(depth - 1);
    asm volatile("");
}

} // namespace

int main(int argc, char** argv) {
    const long milliseconds = argc > 1 ? std::atol(argv[1]) : 1000;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end)
        descend(17);
    return 0;
}
