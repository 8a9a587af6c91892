// What it costs to turn data items and logs into blocks and back, with all their trace lines
// written to the real ring.

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "benchfolder.h"
#include "zelqcood/log.h"

namespace {

BenchFolder const folder;

using Block = std::unique_ptr<unsigned char[]>;

char payload[64] = "sixty-four bytes of payload in each data item";

XLog logWithItems(long count) {
    XLog log(0x11, 0x22, 0x0304, "EVENT", XLog::error, "log id");
    for (long i = 0; i < count; ++i) {
        log.addData(XLogData(payload, sizeof payload, static_cast<unsigned short>(i)));
    }
    return log;
}

void countBytes(benchmark::State& state, Block const& block) {
    std::uint32_t size = 0;
    std::memcpy(&size, block.get(), sizeof size);
    state.counters["bytes"] = size;
}

void dataItemAsBinary(benchmark::State& state) {
    XLogData const item(payload, sizeof payload, 7);
    for (auto _ : state) {
        Block const block(item.asBinary());
        benchmark::DoNotOptimize(block.get());
    }
    countBytes(state, Block(item.asBinary()));
}
BENCHMARK(dataItemAsBinary);

void dataItemRebuild(benchmark::State& state) {
    Block const block(XLogData(payload, sizeof payload, 7).asBinary());
    for (auto _ : state) {
        XLogData const item(block.get());
        benchmark::DoNotOptimize(item.data());
    }
    countBytes(state, block);
}
BENCHMARK(dataItemRebuild);

void logAsBinary(benchmark::State& state) {
    XLog const log = logWithItems(state.range(0));
    for (auto _ : state) {
        Block const block(log.asBinary());
        benchmark::DoNotOptimize(block.get());
    }
    countBytes(state, Block(log.asBinary()));
}
BENCHMARK(logAsBinary)->Arg(1)->Arg(10)->Arg(100);

void logRebuild(benchmark::State& state) {
    Block const block(logWithItems(state.range(0)).asBinary());
    for (auto _ : state) {
        XLog const log(block.get());
        benchmark::DoNotOptimize(log.user());
    }
    countBytes(state, block);
}
BENCHMARK(logRebuild)->Arg(1)->Arg(10)->Arg(100);

}  // namespace
