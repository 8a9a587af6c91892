// What a trace line costs, beside what it cannot do without (reading the clock and copying 200
// bytes) and beside a general-purpose logger that also keeps its newest lines in a ring in memory.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

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
BENCHMARK(serviceFullLine)->Threads(1)->Threads(2)->UseRealTime();

void traceWrite(benchmark::State& state) {
    AllocationCounter const counter(state);
    for (auto _ : state) {
        XTrace::write("XLIBBENCH", 'B', shortText);
    }
}
BENCHMARK(traceWrite)->Threads(1)->Threads(2)->UseRealTime();

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
    spdlog::logger& logger = peerLogger();
    AllocationCounter const counter(state);
    for (auto _ : state) {
        logger.info(spdlog::string_view_t(shortText, sizeof shortText - 1));
    }
}
BENCHMARK(spdlogRing)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
