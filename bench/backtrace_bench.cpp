// What a backtrace with names costs, beside the bare addresses of the same stack: when its lines
// are remembered, and when each has to be looked up; and beside other ways to a text with names. Link with
// benchmark_main.

#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <execinfo.h>
#include <cstdlib>

#ifdef ZELQ_BENCH_STACKTRACE
#include <boost/stacktrace.hpp>
#endif

#include "zelqplatform/errorlog_service.h"

namespace {

constexpr int depth = 12;
constexpr int deeper = 64;

using Work = void (*)(benchmark::State& state);

// Runs `work` on a stack of `depth` frames, whatever stands below the benchmark.
__attribute__((noipa)) void descend(benchmark::State& state, Work work) {
    void* addresses[deeper];
    if (backtrace(addresses, deeper) < depth - 1) {
        descend(state, work);
    } else {
        work(state);
    }
    asm volatile("");
}

__attribute__((noipa)) void bareAddresses(benchmark::State& state) {
    void* addresses[deeper];
    int frames = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(frames = backtrace(addresses, deeper));
    }
    state.counters["frames"] = frames;
}

class Description {
public:
    Description() { xlog_get_backtrace(&text_, 0, nullptr); }
    ~Description() { std::free(text_); }
    Description(Description const&) = delete;
    Description& operator=(Description const&) = delete;

    int frames() const {
        int count = text_ != nullptr ? 1 : 0;
        for (char const* next = text_; next != nullptr && *next != '\0'; ++next) {
            count += *next == '\n' ? 1 : 0;
        }
        return count;
    }

private:
    char* text_ = nullptr;
};

__attribute__((noipa)) void rememberedLines(benchmark::State& state) {
    for (auto _ : state) {
        Description const description;
        benchmark::DoNotOptimize(&description);
    }
    state.counters["frames"] = Description().frames();
    state.SetLabel("backtrace as text|zelqcood");
}

__attribute__((noipa)) void symbols(benchmark::State& state) {
    void* addresses[deeper];
    for (auto _ : state) {
        char** const names = backtrace_symbols(addresses, backtrace(addresses, deeper));
        benchmark::DoNotOptimize(names);
        std::free(names);
    }
    state.SetLabel("backtrace as text|backtrace_symbols");
}

#ifdef ZELQ_BENCH_STACKTRACE
__attribute__((noipa)) void boostText(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(to_string(boost::stacktrace::stacktrace()));
    }
    state.SetLabel("backtrace as text|boost::stacktrace");
}
#endif

// Loading any module makes the service forget all lines.
__attribute__((noipa)) void newLines(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        if (void* const module = dlopen("libutil.so.1", RTLD_NOW)) {
            dlclose(module);
        }
        state.ResumeTiming();
        Description const description;
        benchmark::DoNotOptimize(&description);
    }
    state.counters["frames"] = Description().frames();
}

BENCHMARK_CAPTURE(descend, bareAddresses, bareAddresses);
BENCHMARK_CAPTURE(descend, rememberedLines, rememberedLines);
BENCHMARK_CAPTURE(descend, newLines, newLines);
BENCHMARK_CAPTURE(descend, symbols, symbols);
#ifdef ZELQ_BENCH_STACKTRACE
BENCHMARK_CAPTURE(descend, boostText, boostText);
#endif

}  // namespace
