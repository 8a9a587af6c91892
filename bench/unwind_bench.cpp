// A backtrace with names by libunwind, for comparison with backtrace_bench. A program of its own: linking
// that library replaces the unwinder of all others.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#define UNW_LOCAL_ONLY
#include <libunwind.h>

namespace {

constexpr int depth = 12;

std::string describe() {
    std::string text;
    unw_context_t context;
    unw_cursor_t cursor;
    unw_getcontext(&context);
    unw_init_local(&cursor, &context);
    while (unw_step(&cursor) > 0) {
        char name[256] = "??";
        unw_word_t address = 0;
        unw_word_t offset = 0;
        unw_get_reg(&cursor, UNW_REG_IP, &address);
        unw_get_proc_name(&cursor, name, sizeof name, &offset);
        char line[320];
        std::snprintf(line, sizeof line, "0x%lx  %s+0x%lx\n", static_cast<unsigned long>(address), name,
                      static_cast<unsigned long>(offset));
        text += line;
    }
    return text;
}

__attribute__((noipa)) void descend(benchmark::State& state, int frames) {
    if (frames > 0) {
        descend(state, frames - 1);
    } else {
        for (auto _ : state) {
            benchmark::DoNotOptimize(describe());
        }
        state.SetLabel("backtrace as text|libunwind");
    }
    asm volatile("");
}

// Below it stand about as many frames of the program as in backtrace_bench.
void unwindText(benchmark::State& state) {
    descend(state, depth - 10);
}
BENCHMARK(unwindText);

}  // namespace
