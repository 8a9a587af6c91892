// What a microcode log costs from its building over its block to its record, with all trace lines
// written to the real ring; and the snapshots of that ring. Beside the blocks stand two general
// serialisers with the same content, where their packages are installed.

#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifdef ZELQ_BENCH_PROTOBUF
#include "microcodelog.pb.h"
#endif
#ifdef ZELQ_BENCH_MSGPACK
#include <msgpack.h>
#endif

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

#ifdef ZELQ_BENCH_PROTOBUF
bench::MicrocodeLog protobufMessage(EndLog const& log) {
    bench::MicrocodeLog message;
    message.set_log_class(log.logClass());
    message.set_log_type(log.logType());
    message.set_user(log.user());
    message.set_attributes(0xE300);
    message.set_error_id(log.errorId());
    message.set_error_reason(log.errorReason());
    message.set_owned(log.isOwned());
    message.set_event_name(log.eventName());
    message.set_log_id(log.logId());
    message.set_text(static_cast<char const*>(log.text()));
    message.set_backtrace(static_cast<char const*>(log.backtrace()));
    for (XLogData const* item : *log.data()) {
        bench::DataItem* const added = message.add_items();
        added->set_block_id(item->blockId());
        added->set_data(item->data(), item->size());
    }
    return message;
}

void protobufBoth(benchmark::State& state) {
    bench::MicrocodeLog const message = protobufMessage(largeLog());
    for (auto _ : state) {
        std::string const bytes = message.SerializeAsString();
        bench::MicrocodeLog rebuilt;
        if (!rebuilt.ParseFromString(bytes) || rebuilt.items_size() != 7) {
            state.SkipWithError("not parsed");
            break;
        }
        benchmark::DoNotOptimize(rebuilt.error_id());
    }
    state.counters["bytes"] = static_cast<double>(message.SerializeAsString().size());
}
BENCHMARK(protobufBoth)->Unit(benchmark::kMicrosecond);
#endif

#ifdef ZELQ_BENCH_MSGPACK
/// What a program that reads messages would make of one: every byte copied out of it.
struct PeerLog {
    std::uint64_t numbers[7];
    std::string texts[4];
    std::vector<std::pair<std::uint64_t, std::string>> items;
};

PeerLog peerLog(EndLog const& log) {
    PeerLog peer{
        {log.logClass(), log.logType(), log.user(), 0xE300, log.errorId(),
         static_cast<std::uint64_t>(log.errorReason()), static_cast<std::uint64_t>(log.isOwned())},
        {log.eventName(), log.logId(), static_cast<char const*>(log.text()), static_cast<char const*>(log.backtrace())},
        {}};
    for (XLogData const* item : *log.data()) {
        peer.items.emplace_back(item->blockId(), std::string(static_cast<char const*>(item->data()), item->size()));
    }
    return peer;
}

void pack(PeerLog const& log, msgpack_sbuffer* buffer) {
    msgpack_packer packer;
    msgpack_packer_init(&packer, buffer, msgpack_sbuffer_write);
    msgpack_pack_array(&packer, 7 + 4 + 2 * log.items.size());
    auto const packBytes = [&packer](std::string const& bytes) {
        msgpack_pack_bin(&packer, bytes.size());
        msgpack_pack_bin_body(&packer, bytes.data(), bytes.size());
    };
    for (std::uint64_t const number : log.numbers) {
        msgpack_pack_uint64(&packer, number);
    }
    for (std::string const& text : log.texts) {
        packBytes(text);
    }
    for (auto const& item : log.items) {
        msgpack_pack_uint64(&packer, item.first);
        packBytes(item.second);
    }
}

bool unpack(msgpack_sbuffer const& buffer, PeerLog* log) {
    msgpack_unpacked unpacked;
    msgpack_unpacked_init(&unpacked);
    bool const isWhole = msgpack_unpack_next(&unpacked, buffer.data, buffer.size, nullptr) == MSGPACK_UNPACK_SUCCESS &&
                         unpacked.data.type == MSGPACK_OBJECT_ARRAY && unpacked.data.via.array.size >= 11;
    if (isWhole) {
        msgpack_object const* next = unpacked.data.via.array.ptr;
        msgpack_object const* const end = next + unpacked.data.via.array.size;
        for (std::uint64_t& number : log->numbers) {
            number = next++->via.u64;
        }
        for (std::string& text : log->texts) {
            text.assign(next->via.bin.ptr, next->via.bin.size);
            ++next;
        }
        for (; next < end; next += 2) {
            log->items.emplace_back(next[0].via.u64, std::string(next[1].via.bin.ptr, next[1].via.bin.size));
        }
    }
    msgpack_unpacked_destroy(&unpacked);
    return isWhole;
}

void msgpackBoth(benchmark::State& state) {
    PeerLog const log = peerLog(largeLog());
    std::size_t size = 0;
    for (auto _ : state) {
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        pack(log, &buffer);
        PeerLog rebuilt;
        bool const isWhole = unpack(buffer, &rebuilt);
        size = buffer.size;
        msgpack_sbuffer_destroy(&buffer);
        if (!isWhole || rebuilt.items.size() != 7) {
            state.SkipWithError("not unpacked");
            break;
        }
    }
    state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(msgpackBoth)->Unit(benchmark::kMicrosecond);
#endif

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
