// What a microcode log costs from its building over its block to its record, with all trace lines
// written to the real ring; and the snapshots of that ring.

#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstring>
#include <memory>
#include <string>

#include "benchfolder.h"
#include "switchedservices.h"
#include "zelqcood/mclog.h"
#include "zelqplatform/trace_service.h"

namespace {

constexpr unsigned ringLines = 16384;
constexpr unsigned foreignLines = 10000;
constexpr unsigned snapshotLines = 250;
constexpr unsigned rowWidth = 80;

// Pages mapped, and full of lines of the usual length. The newest are another process's.
bool fillRing() {
    char const line[] = "XLIBBLKD: pData=94527891012345, blockSize=20000, blockType=1, blockFormat=1";
    for (unsigned i = 0; i < ringLines; ++i) {
        xtr_trace(line);
    }
    pid_t const child = fork();
    if (child == 0) {
        for (unsigned i = 0; i < foreignLines; ++i) {
            xtr_trace(line);
        }
        _exit(0);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

BenchFolder const ringFolder;

void requireFullRing() {
    if (!fillRing() || !std::filesystem::exists(ringFolder.path() + "/ring")) {
        std::abort();  // the numbers would be another thing's
    }
}

// The ring is mapped before any benchmark chooses a folder for the store.
bool const isRingMapped = (requireFullRing(), true);

using EndLog = XEndMicrocodeLog;
using Block = std::unique_ptr<unsigned char[]>;

EndLog newLog(XMicrocodeLog::Attribute attributes) {
    return EndLog(0xDE, 0x3000, 0x30, 0x12345678, "BENCH", "a text of usual length, with a file name and an error",
                  attributes, 1, "a log of the benchmark");
}

// Four items of 64 bytes and what takes the place of three snapshots, 20,000 bytes each.
EndLog largeLog() {
    isBacktraceTaken = true;
    EndLog log = newLog(XLog::error | XMicrocodeLog::omitAllTraces);
    isBacktraceTaken = false;
    std::string bytes(snapshotLines * rowWidth, 'x');
    for (unsigned short i = 0; i < 4; ++i) {
        log.addData(XLogData(&bytes[0], 64, i));
    }
    for (unsigned short blockId = 239; blockId >= 237; --blockId) {
        log.addData(XLogData(&bytes[0], bytes.size(), blockId));
    }
    return log;
}

void construct(benchmark::State& state) {
    requireFullRing();
    isBacktraceTaken = state.range(0) != 0;
    XMicrocodeLog::Attribute const none = XLog::error | XMicrocodeLog::omitAllTraces;
    XMicrocodeLog::Attribute const attributes = state.range(1) != 0 ? XLog::error : none;
    for (auto _ : state) {
        EndLog const log = newLog(attributes);
        benchmark::DoNotOptimize(log.errorId());
    }
    isBacktraceTaken = false;
}
BENCHMARK(construct)
    ->ArgNames({"backtrace", "snapshots"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

enum Service { nullService, storeInMemory, storeOnDisk };

void record(benchmark::State& state, Service kind) {
    BenchFolder const folder(kind == storeOnDisk ? "/var/tmp" : "/dev/shm");
    isStoreUsed = kind != nullService;
    requireFullRing();
    EndLog log = newLog(state.range(0) != 0 ? XLog::error : XLog::error | XMicrocodeLog::omitAllTraces);
    for (auto _ : state) {
        log.log();
        delete log.data()->back();  // the reference code, which each recording adds
        log.data()->pop_back();
    }
    isStoreUsed = false;
    if (kind != nullService && std::filesystem::is_empty(folder.path())) {
        state.SkipWithError("nothing was stored");
    }
}
BENCHMARK_CAPTURE(record, null, nullService)->ArgName("snapshots")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(record, memory, storeInMemory)->ArgName("snapshots")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(record, disk, storeOnDisk)
    ->ArgName("snapshots")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

void blockAsBinary(benchmark::State& state) {
    EndLog const log = largeLog();
    for (auto _ : state) {
        Block const block(log.asBinary());
        benchmark::DoNotOptimize(block.get());
    }
}
BENCHMARK(blockAsBinary)->Unit(benchmark::kMicrosecond);

void blockRebuild(benchmark::State& state) {
    Block const block(largeLog().asBinary());
    for (auto _ : state) {
        EndLog const log(block.get());
        benchmark::DoNotOptimize(log.errorId());
    }
}
BENCHMARK(blockRebuild)->Unit(benchmark::kMicrosecond);

// With the backtrace of the rebuilding, and without.
void blockBoth(benchmark::State& state) {
    EndLog const log = largeLog();
    isBacktraceTaken = state.range(0) != 0;
    for (auto _ : state) {
        Block const block(log.asBinary());
        EndLog const rebuilt(block.get());
        benchmark::DoNotOptimize(rebuilt.errorId());
    }
    isBacktraceTaken = false;
    std::uint32_t size = 0;
    std::memcpy(&size, Block(log.asBinary()).get(), sizeof size);
    state.counters["bytes"] = size;
}
BENCHMARK(blockBoth)->ArgName("backtrace")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// From a full ring of whose lines the caller wrote none of the newest 10,000.
template <class Fetch>
void fetch(benchmark::State& state, Fetch take) {
    requireFullRing();
    std::string buffer(snapshotLines * rowWidth, '\0');
    int bytes = 0;
    for (auto _ : state) {
        take(&buffer[0], &bytes);
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["bytes"] = bytes;
}
BENCHMARK_CAPTURE(fetch, all, [](char* buffer, int* bytes) {
    xtr_fetch(buffer, snapshotLines, rowWidth, nullptr, bytes);
})->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(fetch, pid, [](char* buffer, int* bytes) {
    xtr_fetch_pid(buffer, snapshotLines * rowWidth, bytes);
})->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(fetch, tid, [](char* buffer, int* bytes) {
    xtr_fetch_tid(buffer, snapshotLines * rowWidth, bytes);
})->Unit(benchmark::kMicrosecond);

}  // namespace
