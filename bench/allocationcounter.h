#ifndef ZELQCOOD_BENCH_ALLOCATIONCOUNTER_H
#define ZELQCOOD_BENCH_ALLOCATIONCOUNTER_H

#include <benchmark/benchmark.h>

#include "countednew.h"

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
