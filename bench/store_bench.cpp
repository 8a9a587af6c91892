// What recording one log costs: rendering alone, with the store in memory, where a sync costs
// nothing, and on a disk, where it is nearly everything. Beside each stands what it cannot be
// cheaper than: a JSON writer's plain string, and one write (with one sync) of as many bytes.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#ifdef ZELQ_BENCH_SQLITE
#include <sqlite3.h>
#endif

#include "allocationcounter.h"
#include "benchfolder.h"
#include "store/recordwriter.h"
#include "zelqplatform/errorlog_service.h"

namespace {

char const* const memoryFolder = "/dev/shm";
char const* const diskFolder = "/var/tmp";

/// A record with one item of `size` bytes.
class BenchRecord {
public:
    BenchRecord(std::size_t size, bool isText) : bytes_(size, isText ? 'x' : '\x80') {
        for (std::size_t i = 59; isText && i < size; i += 60) {
            bytes_[i] = '\n';  // as in a dump: what must be escaped comes up now and then
        }
        record_.attributes = XLOG_ERROR;
        std::strcpy(record_.eventName, "BENCH");
        std::strcpy(record_.logId, "a log of the benchmark");
        entry_ = {static_cast<std::uint32_t>(size), 1, {}, bytes_.data(), nullptr};
        record_.details = &entry_;
    }
    BenchRecord(BenchRecord const&) = delete;
    BenchRecord& operator=(BenchRecord const&) = delete;

    xlog_record_interface& get() { return record_; }
    std::string const& bytes() const { return bytes_; }

    std::string line() const {
        std::string line;
        zelq::RecordView view = zelq::viewOf(record_);
        view.id = "0123456789abcdef";
        view.timeUs = 1764000000000000;
        view.host = "host";
        view.program = "program";
        view.pid = view.tid = 1;
        zelq::renderRecord(view, line);
        return line;
    }

private:
    std::string bytes_;
    xlog_detail_entry entry_ = {};
    xlog_record_interface record_ = {};
};

void render(benchmark::State& state, bool isText) {
    BenchRecord const record(static_cast<std::size_t>(state.range(0)), isText);
    state.counters["line_bytes"] = static_cast<double>(record.line().size());
    AllocationCounter const counter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.line().data());
    }
}
BENCHMARK_CAPTURE(render, text, true)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(render, binary, false)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond);

void peerJsonString(benchmark::State& state) {
    BenchRecord const record(static_cast<std::size_t>(state.range(0)), true);
    std::string const& bytes = record.bytes();
    for (auto _ : state) {
        rapidjson::StringBuffer line;
        rapidjson::Writer<rapidjson::StringBuffer> writer(line);
        writer.String(bytes.data(), static_cast<rapidjson::SizeType>(bytes.size()));
        benchmark::DoNotOptimize(line.GetString());
    }
}
BENCHMARK(peerJsonString)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond);

void setLabel(benchmark::State& state, char const* parent, char const* who) {
    if (parent == diskFolder) {
        state.SetLabel("durable record of " + std::to_string(state.range(0) >> 10) + " KiB|" + who);
    }
}

void record(benchmark::State& state, char const* parent) {
    BenchFolder const folder(parent);
    BenchRecord log(static_cast<std::size_t>(state.range(0)), true);
    state.counters["line_bytes"] = static_cast<double>(log.line().size());
    setLabel(state, parent, "zelqcood");
    AllocationCounter const counter(state);
    for (auto _ : state) {
        if (xlog_record(&log.get(), nullptr) != XLOG_OK) {
            state.SkipWithError("the record could not be stored");
            break;
        }
    }
}
BENCHMARK_CAPTURE(record, memory, memoryFolder)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(record, disk, diskFolder)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Each waits for the disk, but several wait together: the filesystem commits for all of them at once.
std::optional<BenchFolder> folderOfAll;
void recordTogether(benchmark::State& state) {
    BenchRecord log(1 << 10, true);
    for (auto _ : state) {
        if (xlog_record(&log.get(), nullptr) != XLOG_OK) {
            state.SkipWithError("the record could not be stored");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(recordTogether)
    ->Setup([](benchmark::State const&) { folderOfAll.emplace(diskFolder); })
    ->Teardown([](benchmark::State const&) { folderOfAll.reset(); })
    ->ThreadRange(1, 16)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

void peerWrite(benchmark::State& state, char const* parent) {
    BenchFolder const folder(parent);
    BenchRecord const log(static_cast<std::size_t>(state.range(0)), true);
    std::string const line = log.line();
    std::string const path = folder.path() + "/peer";
    int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::size_t size = 0;
    setLabel(state, parent, "write and fdatasync");
    for (auto _ : state) {
        if (write(file, line.data(), line.size()) < 0 || fdatasync(file) != 0) {
            state.SkipWithError("cannot write");
            break;
        }
        size += line.size();
        if (size > 16U << 20) {  // as much as a file of the store gets
            size = 0;
            if (ftruncate(file, 0) != 0) {
                state.SkipWithError("cannot truncate");
                break;
            }
        }
    }
    close(file);
}
BENCHMARK_CAPTURE(peerWrite, memory, memoryFolder)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(peerWrite, disk, diskFolder)
    ->Arg(1 << 10)
    ->Arg(60 << 10)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

#ifdef ZELQ_BENCH_SQLITE
// The same line as a row of a database that is as durable: each insertion is a transaction.
void peerSqlite(benchmark::State& state) {
    BenchFolder const folder(diskFolder);
    BenchRecord const log(static_cast<std::size_t>(state.range(0)), true);
    std::string const line = log.line();
    setLabel(state, diskFolder, "SQLite, WAL, synchronous=FULL");
    sqlite3* database = nullptr;
    sqlite3_stmt* insert = nullptr;
    bool isGood =
        sqlite3_open((folder.path() + "/peer.db").c_str(), &database) == SQLITE_OK &&
        sqlite3_exec(database,
                     "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                     "CREATE TABLE records(id INTEGER PRIMARY KEY, line TEXT);",
                     nullptr, nullptr, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(database, "INSERT INTO records(line) VALUES(?)", -1, &insert, nullptr) == SQLITE_OK;
    for (auto _ : state) {
        isGood = isGood &&
                 sqlite3_bind_text(insert, 1, line.data(), static_cast<int>(line.size()), SQLITE_STATIC) == SQLITE_OK &&
                 sqlite3_step(insert) == SQLITE_DONE && sqlite3_reset(insert) == SQLITE_OK;
        if (!isGood) {
            state.SkipWithError(sqlite3_errmsg(database));
            break;
        }
    }
    sqlite3_finalize(insert);
    sqlite3_close(database);
}
BENCHMARK(peerSqlite)->Arg(1 << 10)->Arg(60 << 10)->Unit(benchmark::kMicrosecond)->UseRealTime();
#endif

}  // namespace
