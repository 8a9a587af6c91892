#ifndef ZELQCOOD_BENCH_ALLOCATIONCOUNTER_H
#define ZELQCOOD_BENCH_ALLOCATIONCOUNTER_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <new>

// Counts a benchmark's allocations. Replaces operator new, and so belongs into one source file of a
// program.

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

/// Reports the allocations of one iteration beside the times.
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State& state) : state_(state), before_(allocations) {}
    ~AllocationCounter() {
        state_.counters["allocations"] =
            benchmark::Counter(static_cast<double>(allocations - before_), benchmark::Counter::kAvgIterations);
    }
    AllocationCounter(AllocationCounter const&) = delete;
    AllocationCounter& operator=(AllocationCounter const&) = delete;

private:
    benchmark::State& state_;
    std::uint64_t before_;
};

#endif
