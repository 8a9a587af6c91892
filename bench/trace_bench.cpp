// What a trace line costs, beside what it cannot do without (reading the clock and copying 200
// bytes) and beside other ways to leave a line: a general-purpose logger that keeps its newest lines in a
// ring in memory or hands them to a thread, the C library's streams and syslog, and a kernel-style tracer.

#include <benchmark/benchmark.h>

#include <syslog.h>
#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include <spdlog/async.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#ifdef ZELQ_BENCH_LTTNG
#include <lttng/tracef.h>
#endif

#include "allocationcounter.h"
#include "benchfolder.h"
#include "zelqcood/trace.h"
#include "zelqplatform/trace_service.h"

namespace {

constexpr std::size_t ringLines = 16384;

// The first lap maps the ring and all its pages; without the shared ring the numbers would be
// another thing's.
bool writeFirstLap(BenchFolder const& folder) {
    for (std::size_t i = 0; i < ringLines; ++i) {
        xtr_trace("first lap");
    }
    if (!std::filesystem::exists(folder.path() + "/ring")) {
        std::abort();
    }
    return true;
}

BenchFolder const ringFolder;
bool const isPrepared = writeFirstLap(ringFolder);

constexpr char shortText[] = "Adding block 17 of 42, 512 bytes";

std::string fullLine() {
    std::string line = "bench  B: ";
    line.resize(199, 'x');
    return line;
}

void clockAndCopy(benchmark::State& state) {
    std::string const line = fullLine();
    struct Slot {
        struct timespec time;
        char text[200];
    } slot;
    for (auto _ : state) {
        clock_gettime(CLOCK_REALTIME, &slot.time);
        std::memcpy(slot.text, line.c_str(), sizeof slot.text);
        benchmark::DoNotOptimize(slot);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(clockAndCopy)->Threads(1)->Threads(2)->UseRealTime();

// The same into a ring of the size of the service's: what the memory itself costs.
void clockAndCopyToRing(benchmark::State& state) {
    std::string const line = fullLine();
    struct alignas(256) Slot {
        struct timespec time;
        char text[200];
    };
    auto const ring = std::make_unique<Slot[]>(ringLines);
    std::memset(static_cast<void*>(ring.get()), 1, ringLines * sizeof(Slot));
    std::size_t next = 0;
    for (auto _ : state) {
        Slot& slot = ring[next++ % ringLines];
        clock_gettime(CLOCK_REALTIME, &slot.time);
        std::memcpy(slot.text, line.c_str(), sizeof slot.text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(clockAndCopyToRing)->Threads(1)->Threads(2)->UseRealTime();

void serviceShortLine(benchmark::State& state) {
    AllocationCounter const counter(state);
    for (auto _ : state) {
        xtr_trace(shortText);
    }
}
BENCHMARK(serviceShortLine)->Threads(1)->Threads(2)->UseRealTime();

void serviceFullLine(benchmark::State& state) {
    std::string const line = fullLine();
    AllocationCounter const counter(state);
    for (auto _ : state) {
        xtr_trace(line.c_str());
    }
}
BENCHMARK(serviceFullLine)->ThreadRange(1, 8)->UseRealTime();

void setLabel(benchmark::State& state, char const* who) {
    std::string const threads = state.threads() == 1 ? "" : ", " + std::to_string(state.threads()) + " threads";
    state.SetLabel("trace line" + threads + "|" + who);
}

void traceWrite(benchmark::State& state) {
    setLabel(state, "zelqcood");
    AllocationCounter const counter(state);
    for (auto _ : state) {
        XTrace::write("XLIBBENCH", 'B', shortText);
    }
}
BENCHMARK(traceWrite)->ThreadRange(1, 8)->UseRealTime();

// Two lines: the scope's entry and its exit.
void traceScope(benchmark::State& state) {
    AllocationCounter const counter(state);
    for (auto _ : state) {
        XTrace const scope("XLIBBENCH", 'F', "appendBlock");
    }
}
BENCHMARK(traceScope)->Threads(1)->Threads(2)->UseRealTime();

void dumpBytes(benchmark::State& state) {
    std::string const bytes(static_cast<std::size_t>(state.range(0)), 'x');
    AllocationCounter const counter(state);
    for (auto _ : state) {
        XTrace::dumpBytes("XLIBBENCH", 'D', "block", bytes.data(), bytes.size());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(dumpBytes)->Arg(32)->Arg(1024);

spdlog::logger& peerLogger() {
    static std::shared_ptr<spdlog::logger> const logger = [] {
        auto const sink = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(ringLines);
        auto const made = std::make_shared<spdlog::logger>("XLIBBEN", sink);
        for (std::size_t i = 0; i < ringLines; ++i) {
            made->info("first lap");
        }
        return made;
    }();
    return *logger;
}

// It stores the line as it comes, with time, thread and level, and formats when it is read.
void spdlogRing(benchmark::State& state) {
    setLabel(state, "spdlog, ring buffer");
    spdlog::logger& logger = peerLogger();
    AllocationCounter const counter(state);
    for (auto _ : state) {
        logger.info(spdlog::string_view_t(shortText, sizeof shortText - 1));
    }
}
BENCHMARK(spdlogRing)->ThreadRange(1, 8)->UseRealTime();

// The caller's part; a thread of the logger's puts the lines into the same kind of ring. What that thread
// cannot keep up with is lost, as in a ring.
void spdlogAsync(benchmark::State& state) {
    static auto const pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
    static auto const logger = std::make_shared<spdlog::async_logger>(
        "XLIBBEN", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(ringLines), pool,
        spdlog::async_overflow_policy::overrun_oldest);
    setLabel(state, "spdlog, asynchronous");
    for (auto _ : state) {
        logger->info(spdlog::string_view_t(shortText, sizeof shortText - 1));
    }
}
BENCHMARK(spdlogAsync)->Threads(1)->Threads(2)->UseRealTime();

// Into a file in memory; lost with the process unless it is flushed.
void streamLine(benchmark::State& state, bool isFlushed) {
    static std::FILE* const file = std::fopen((ringFolder.path() + "/stream").c_str(), "w");
    setLabel(state, isFlushed ? "fprintf, flushed" : "fprintf");
    std::size_t lines = 0;
    for (auto _ : state) {
        std::fprintf(file, "%s%c: %s\n", "XLIBBEN", 'B', shortText);
        if (isFlushed) {
            std::fflush(file);
        }
        if (++lines % ringLines == 0) {
            std::rewind(file);
        }
    }
}
BENCHMARK_CAPTURE(streamLine, buffered, false)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(streamLine, flushed, true)->Threads(1)->Threads(2)->UseRealTime();

void systemLog(benchmark::State& state) {
    setLabel(state, "syslog");
    if (access("/dev/log", W_OK) != 0) {
        state.SkipWithError("nobody listens at /dev/log");
        return;
    }
    for (auto _ : state) {
        syslog(LOG_DEBUG, "%s", shortText);
    }
}
BENCHMARK(systemLog)->Threads(1)->Threads(2)->UseRealTime();

#ifdef ZELQ_BENCH_LTTNG
// Needs a session that records: lttng create zelq --snapshot; lttng enable-event -u 'lttng_ust_tracef:*';
// lttng start. Without one the line would go nowhere.
void lttngLine(benchmark::State& state) {
    setLabel(state, "LTTng-UST, tracef");
    if (!lttng_ust_tracepoint_enabled(lttng_ust_tracef, event)) {
        state.SkipWithError("no session records lttng_ust_tracef");
        return;
    }
    for (auto _ : state) {
        lttng_ust_tracef("%s", shortText);
    }
}
BENCHMARK(lttngLine)->Threads(1)->Threads(2)->UseRealTime();
#endif

}  // namespace
