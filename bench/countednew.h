#ifndef ZELQCOOD_BENCH_COUNTEDNEW_H
#define ZELQCOOD_BENCH_COUNTEDNEW_H

#include <cstdint>
#include <cstdlib>
#include <new>

// Counts a program's allocations. Replaces operator new, and so belongs into one source file of it.

inline thread_local std::uint64_t allocations = 0;

// Not inlined: the compiler would otherwise see malloc() on one side of a pair only, and warn.
__attribute__((noinline)) void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif
