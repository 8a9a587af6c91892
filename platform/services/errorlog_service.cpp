#include "zelqplatform/errorlog_service.h"

#include <sys/random.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <exception>
#include <string>

#include "common/systemcalls.h"
#include "common/text.h"
#include "store/append.h"
#include "store/recordwriter.h"

namespace zelq {
namespace {

/// How many records of this process could not be stored since the last one that said so.
///
/// One word, so that a thread may fork at any moment: process id above, count below. A forked
/// child thereby starts from 0 and does not report its parent's losses a second time.
class LossCount {
public:
    void add(std::uint32_t losses) noexcept {
        std::uint64_t const mine = owner();
        std::uint64_t old = word_.load(std::memory_order_relaxed);
        std::uint64_t changed = 0;
        do {
            std::uint64_t const count = (old & ownerMask) == mine ? old & countMask : 0;
            changed = mine | (count + losses > countMask ? countMask : count + losses);
        } while (!word_.compare_exchange_weak(old, changed, std::memory_order_relaxed));
    }

    /// Returns the count and sets it to 0: the caller either stores it or adds it again.
    std::uint32_t take() noexcept {
        if (word_.load(std::memory_order_relaxed) == 0) {
            return 0;
        }
        std::uint64_t const old = word_.exchange(0, std::memory_order_relaxed);
        return (old & ownerMask) == owner() ? static_cast<std::uint32_t>(old & countMask) : 0;
    }

private:
    static constexpr std::uint64_t countMask = 0xFFFFFFFFU;
    static constexpr std::uint64_t ownerMask = ~countMask;

    static std::uint64_t owner() noexcept { return static_cast<std::uint64_t>(getpid()) << 32; }

    std::atomic<std::uint64_t> word_{0};
};

// Trivially destructible, and so usable by threads that outlive static destruction.
LossCount lossCount;

std::uint64_t newId(std::int64_t nowNs) {
    std::uint64_t id = 0;
    if (getrandom(&id, sizeof id, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof id)) {
        return id;
    }
    // Early in a boot the kernel may have no randomness yet; then at least no two threads, processes
    // or moments share an id. The multiplication spreads the bits (its factor is odd, nothing is lost).
    static std::atomic<std::uint32_t> calls{0};
    id = static_cast<std::uint64_t>(nowNs);
    id ^= static_cast<std::uint64_t>(getpid()) << 40 ^
          static_cast<std::uint64_t>(calls.fetch_add(1, std::memory_order_relaxed)) << 20;
    return (id ^ id >> 32) * 0x9E3779B97F4A7C15U;
}

// Rendering comes before any lock is taken: it is what takes the time that depends on the caller.
StoreOutcome recordOnce(xlog_record_interface const& record, std::uint32_t lostBefore) {
    char host[256];
    if (gethostname(host, sizeof host) != 0) {
        host[0] = '\0';
    }
    host[sizeof host - 1] = '\0';
    std::int64_t const nowNs = clockNs(CLOCK_REALTIME);
    char id[16];
    putHexDigits(id, newId(nowNs), sizeof id);

    RecordView view = viewOf(record);
    view.id = {id, sizeof id};
    view.timeUs = nowNs / 1000;
    view.host = host;
    view.program = program_invocation_short_name;
    view.pid = static_cast<unsigned>(getpid());
    view.tid = static_cast<unsigned>(gettid());
    view.lostBefore = lostBefore;
    std::string line(1, '\n');  // see appendToStore()
    renderRecord(view, line);
    return appendToStore(line.data(), line.size());
}

StoreOutcome recordCounted(xlog_record_interface const& record) noexcept {
    std::uint32_t const lostBefore = lossCount.take();
    StoreOutcome outcome;
    try {
        outcome = recordOnce(record, lostBefore);
    } catch (std::exception const&) {
        outcome = {XLOG_NO_MEMORY, ENOMEM};  // bad_alloc, or length_error for what no memory could hold
    }
    // A record whose sync failed stands in the store with its own count, so it is not lost here.
    bool const stored = outcome.result == XLOG_OK || outcome.result == XLOG_SYNC_FAILED;
    if (!stored) {
        lossCount.add(lostBefore == UINT32_MAX ? lostBefore : lostBefore + 1);
    }
    return outcome;
}

}  // namespace
}  // namespace zelq

int xlog_record(xlog_record_interface* record, int* crc) {
    zelq::ErrnoKeeper const keeper;
    zelq::StoreOutcome outcome = {XLOG_NO_RECORD, EINVAL};
    if (record != nullptr) {
        zelq::NoCancellation const noCancellation;
        outcome = zelq::recordCounted(*record);
    }
    if (crc != nullptr) {
        *crc = outcome.crc;
    }
    return outcome.result;
}
