#include "tracing/fastclock.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <atomic>
#include <cstring>
#include <ctime>

#include "common/systemcalls.h"

namespace zelq {

__constinit thread_local ClockAnchor clockAnchor{};

namespace {

constexpr std::int64_t anchorNs = 1000000;
constexpr std::uint64_t readTicksMax = 20000;  // for one reading of the clock that was not interrupted

// The counter's rate is measured once in a process, over this long at least and at most.
constexpr std::int64_t measureNsMin = 2000000;
constexpr std::int64_t measureNsMax = 1000000000;

struct Reading {
    std::uint64_t counter;
    std::int64_t ns;
};

// 0 while it is not known. Processors from 1 to 16 GHz fit.
std::atomic<std::uint32_t> nsPerTick{0};
constexpr std::uint64_t oneNsPerTick = std::uint64_t{1} << 31;

// Where the measurement began. Written before the first line, and by whoever begins it anew.
std::atomic<std::uint64_t> measureCounter{0};
std::atomic<std::int64_t> measureNs{0};
std::atomic<bool> isUsable{false};

std::int64_t readClock(clockid_t clock) {
    struct timespec now;
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// Both at one moment: when the thread was interrupted between the two, it reads them again.
bool readBoth(clockid_t clock, Reading* reading) {
    for (int tries = 0; tries < 4; ++tries) {
        std::uint64_t const before = __rdtsc();
        reading->ns = readClock(clock);
        std::uint64_t const ticks = __rdtsc() - before;
        reading->counter = before + ticks / 2;
        if (ticks < readTicksMax) {
            return true;
        }
    }
    return false;
}

// The kernel's own choice says that the counter runs at one rate and is the same on all processors.
bool isKernelsClock() {
    char name[8] = "";
    Descriptor const file(openApart(
        [] { return open("/sys/devices/system/clocksource/clocksource0/current_clocksource", O_RDONLY | O_CLOEXEC); }));
    ssize_t const length = file.get() < 0 ? -1 : read(file.get(), name, sizeof name);
    int mode = 0;
    return length == 4 && std::memcmp(name, "tsc\n", 4) == 0 && prctl(PR_GET_TSC, &mode) == 0 && mode == PR_TSC_ENABLE;
}

void beginMeasurement(Reading const& reading) {
    measureCounter.store(reading.counter, std::memory_order_relaxed);
    measureNs.store(reading.ns, std::memory_order_relaxed);
}

// The monotonic clock, since setting the time of day would spoil the measurement.
std::uint32_t measureRate() {
    Reading reading;
    if (!readBoth(CLOCK_MONOTONIC, &reading)) {
        return 0;
    }
    std::int64_t const ns = reading.ns - measureNs.load(std::memory_order_relaxed);
    std::uint64_t const ticks = reading.counter - measureCounter.load(std::memory_order_relaxed);
    if (ns < measureNsMin) {
        return 0;
    }
    std::uint64_t const rate = ns > measureNsMax || ticks == 0 ? 0 : (static_cast<std::uint64_t>(ns) << 31) / ticks;
    if (rate > oneNsPerTick || rate < oneNsPerTick / 16) {
        beginMeasurement(reading);
        return 0;
    }
    nsPerTick.store(static_cast<std::uint32_t>(rate), std::memory_order_relaxed);
    return static_cast<std::uint32_t>(rate);
}

}  // namespace

void prepareFastClock() {
    Reading reading;
    if (isKernelsClock() && readBoth(CLOCK_MONOTONIC, &reading)) {
        beginMeasurement(reading);
        isUsable.store(true, std::memory_order_release);
    }
}

std::int64_t askClock() {
    Reading now;
    if (!isUsable.load(std::memory_order_acquire) || !readBoth(CLOCK_REALTIME, &now)) {
        return readClock(CLOCK_REALTIME);
    }
    std::uint32_t rate = nsPerTick.load(std::memory_order_relaxed);
    if (rate == 0) {
        rate = measureRate();
    }
    if (rate != 0) {
        ClockAnchor& anchor = clockAnchor;
        anchor.validTicks = 0;  // for a signal handler that comes in between
        std::atomic_signal_fence(std::memory_order_seq_cst);
        anchor.counter = now.counter;
        anchor.timeNs = now.ns;
        anchor.nsPerTick = rate;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        anchor.validTicks = static_cast<std::uint32_t>((static_cast<std::uint64_t>(anchorNs) << 31) / rate);
    }
    return now.ns;
}

}  // namespace zelq
