// Turning a microcode log into bytes and back, beside general serialisers with the same content: small,
// and with three items of 20,000 bytes. A peer is left out where its package is missing.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "benchfolder.h"
#include "recordpeers.h"
#include "switchedservices.h"
#include "zelqcood/mclog.h"
#include "zelqplatform/trace_service.h"

namespace {

BenchFolder const folder;

constexpr unsigned ringLines = 16384;
constexpr std::size_t smallItem = 64;
constexpr std::size_t largeItem = 20000;

/// Four small items, and on demand what takes the place of three snapshots.
XEndMicrocodeLog newLog(bool isLarge) {
    isBacktraceTaken = true;
    XEndMicrocodeLog log(0xDE, 0x3000, 0x30, 0x12345678, "BENCH",
                         "a text of usual length, with a file name and an error",
                         XLog::error | XMicrocodeLog::omitAllTraces, 1, "a log of the benchmark");
    isBacktraceTaken = false;
    std::string bytes(largeItem, 'x');
    for (unsigned short i = 0; i < 4; ++i) {
        log.addData(XLogData(&bytes[0], smallItem, i));
    }
    for (unsigned short blockId = 239; isLarge && blockId >= 237; --blockId) {
        log.addData(XLogData(&bytes[0], largeItem, blockId));
    }
    return log;
}

PeerLog peerLog(XEndMicrocodeLog const& log) {
    PeerLog peer{
        {log.logClass(), log.logType(), log.user(), 0xE300, log.errorId(),
         static_cast<std::uint64_t>(log.errorReason()), static_cast<std::uint64_t>(log.isOwned())},
        {log.eventName(), log.logId(), static_cast<char const*>(log.text()), static_cast<char const*>(log.backtrace())},
        {}};
    for (XLogData const* item : *log.data()) {
        auto const* const bytes = static_cast<unsigned char const*>(item->data());
        peer.items.push_back({item->blockId(), {bytes, bytes + item->size()}});
    }
    return peer;
}

std::string label(bool isLarge, std::string const& who) {
    return std::string(isLarge ? "record of 61 kB to bytes and back" : "small record to bytes and back") + "|" + who;
}

void block(benchmark::State& state, bool isLarge) {
    for (unsigned i = 0; i < ringLines; ++i) {
        xtr_trace("first lap");
    }
    XEndMicrocodeLog const log = newLog(isLarge);
    std::uint32_t size = 0;
    for (auto _ : state) {
        std::unique_ptr<unsigned char[]> const bytes(log.asBinary());
        XEndMicrocodeLog const rebuilt(bytes.get());
        if (rebuilt.errorReason() != log.errorReason()) {
            state.SkipWithError("not the same");
            break;
        }
        std::memcpy(&size, bytes.get(), sizeof size);
    }
    state.counters["bytes"] = size;
    state.SetLabel(label(isLarge, "zelqcood, with its trace lines"));
}

// Each peer gives a function that turns the log into bytes, makes another log of them, and returns the
// number of bytes.
void peer(benchmark::State& state, std::size_t (*thereAndBack)(PeerLog const&, PeerLog*), bool isLarge,
          std::string const& name) {
    PeerLog const log = peerLog(newLog(isLarge));
    std::size_t size = 0;
    for (auto _ : state) {
        PeerLog rebuilt;
        size = thereAndBack(log, &rebuilt);
        if (rebuilt.numbers[5] != log.numbers[5] || rebuilt.items.size() != log.items.size()) {
            state.SkipWithError("not the same");
            break;
        }
    }
    state.counters["bytes"] = static_cast<double>(size);
    state.SetLabel(label(isLarge, name));
}

[[maybe_unused]] int const registered = [] {
    for (bool const isLarge : {false, true}) {
        std::string const size = isLarge ? "/large" : "/small";
        benchmark::RegisterBenchmark(("block" + size).c_str(), block, isLarge);
        for (RecordPeer const& each : recordPeers()) {
            benchmark::RegisterBenchmark((each.name + size).c_str(), peer, each.thereAndBack, isLarge, each.name);
        }
    }
    return 0;
}();

}  // namespace
