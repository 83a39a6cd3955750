// What the test program asks of operator new: how many requests, and the largest while watched.
#ifndef KORVANE_TESTS_ALLOCATION_WATCH_H
#define KORVANE_TESTS_ALLOCATION_WATCH_H

#include <cstddef>

namespace korvane_test {

// Requests to operator new since the program started, from every thread.
unsigned long allocationCount();

// Starts keeping the largest single request, from nothing.
void watchLargestAllocation();
std::size_t largestAllocation();

} // namespace korvane_test

#endif
