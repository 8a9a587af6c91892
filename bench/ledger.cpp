// The ledger: each of the library's main operations beside the limit for what its definition names,
// both measured in turns in one run. Prints a table; with the name of a file, writes that as JSON too.

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "benchfolder.h"
#include "countednew.h"
#include "demand.h"
#include "operations.h"
#include "tracing/ringlayout.h"
#include "zelqplatform/trace_service.h"

namespace {

using Clock = std::chrono::steady_clock;

// All operations take turns, so that each is measured at many moments: what other programs do to this
// one's speed for a while then spoils no operation's minimum, nor that of its limit alone.
constexpr int rounds = 100;
constexpr auto roundTime = std::chrono::microseconds(500);

BenchFolder const folder;

/// Lines ever written to this program's ring.
std::uint64_t linesWritten() {
    static int const file = open((folder.path() + "/ring").c_str(), O_RDONLY | O_CLOEXEC);
    std::uint64_t tickets = 0;
    if (pread(file, &tickets, sizeof tickets, offsetof(zelq::RingHeader, nextTicket)) != sizeof tickets) {
        std::perror("ring");
        std::exit(1);
    }
    return tickets;
}

double nanoseconds(std::function<void()> const& run, int count) {
    auto const start = Clock::now();
    for (int i = 0; i < count; ++i) {
        run();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / count;
}

class Measurement {
public:
    explicit Measurement(std::function<void()> run) : run_(std::move(run)) {
        double const once = std::max(nanoseconds(run_, 1), nanoseconds(run_, 3));
        count_ = std::max(1, static_cast<int>(std::chrono::duration<double, std::nano>(roundTime).count() / once));
    }
    void measure() { ns_ = std::min(ns_, nanoseconds(run_, count_)); }
    double ns() const { return ns_; }

private:
    std::function<void()> run_;
    int count_;
    double ns_ = std::numeric_limits<double>::max();
};

struct Entry {
    explicit Entry(Operation const& operation)
        : name(operation.name), limit(operation.runDemanded), today(operation.run) {}

    double ratio() const { return today.ns() / limit.ns(); }

    std::string name;
    demand::Counts demanded;
    std::uint64_t allocations = 0;  ///< of the operation itself
    Measurement limit;
    Measurement today;
};

/// False when the two did not write the same number of lines: then the limit is that of another thing.
bool count(Operation const& operation, Entry* entry) {
    std::uint64_t const linesBefore = linesWritten();
    std::uint64_t const allocationsBefore = allocations;
    operation.run();
    entry->allocations = allocations - allocationsBefore;
    std::uint64_t const lines = linesWritten() - linesBefore;
    demand::counts = {};
    operation.runDemanded();
    entry->demanded = demand::counts;
    if (lines != entry->demanded.lines) {
        std::fprintf(stderr, "%s: writes %llu lines, but its definition names %llu\n", entry->name.c_str(),
                     static_cast<unsigned long long>(lines), static_cast<unsigned long long>(entry->demanded.lines));
    }
    return lines == entry->demanded.lines;
}

void printTable(std::vector<Entry> const& entries) {
    std::printf("%-52s %6s %12s %9s %9s %12s %12s %6s\n", "operation", "lines", "bytes", "allocs", "named", "limit ns",
                "today ns", "ratio");
    for (Entry const& entry : entries) {
        std::printf("%-52s %6llu %12llu %9llu %9llu %12.1f %12.1f %6.2f\n", entry.name.c_str(),
                    static_cast<unsigned long long>(entry.demanded.lines),
                    static_cast<unsigned long long>(entry.demanded.bytes),
                    static_cast<unsigned long long>(entry.allocations),
                    static_cast<unsigned long long>(entry.demanded.allocations), entry.limit.ns(), entry.today.ns(),
                    entry.ratio());
    }
}

bool writeJson(std::vector<Entry> const& entries, char const* path) {
    std::FILE* const file = std::fopen(path, "w");
    if (file == nullptr) {
        return false;
    }
    std::fprintf(file, "{\"bits\": %d, \"ledger\": [", static_cast<int>(8 * sizeof(void*)));
    char const* separator = "\n";
    for (Entry const& entry : entries) {
        std::fprintf(file,
                     "%s  {\"name\": \"%s\", \"lines\": %llu, \"bytes\": %llu, \"allocations\": %llu, "
                     "\"named_allocations\": %llu, \"limit_ns\": %.1f, \"today_ns\": %.1f, \"ratio\": %.3f}",
                     separator, entry.name.c_str(), static_cast<unsigned long long>(entry.demanded.lines),
                     static_cast<unsigned long long>(entry.demanded.bytes),
                     static_cast<unsigned long long>(entry.allocations),
                     static_cast<unsigned long long>(entry.demanded.allocations), entry.limit.ns(), entry.today.ns(),
                     entry.ratio());
        separator = ",\n";
    }
    std::fprintf(file, "\n]}\n");
    return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    for (std::uint64_t i = 0; i < zelq::ringSizeDefault / zelq::ringSlotSize; ++i) {
        xtr_trace("first lap: maps the ring and all its pages");
    }
    std::vector<Entry> entries;
    bool isRight = true;
    for (Operation const& operation : mainOperations()) {
        isRight = count(operation, &entries.emplace_back(operation)) && isRight;
    }
    for (int round = 0; round < rounds; ++round) {
        for (Entry& entry : entries) {
            entry.limit.measure();
            entry.today.measure();
        }
    }
    printTable(entries);
    if (argc > 1 && !writeJson(entries, argv[1])) {
        std::perror(argv[1]);
        return 1;
    }
    return isRight ? 0 : 1;
}
