#ifndef ZELQ_FASTCLOCK_H
#define ZELQ_FASTCLOCK_H

#include <cstdint>

#include <x86intrin.h>

// The time of day for trace lines. Asking the kernel's clock is most of what a line costs, so each
// thread asks it once in a millisecond and counts on from there with the time stamp counter, where
// the kernel itself trusts that counter. The result is off by less than a microsecond; a clock that
// is set anew shows within that millisecond.

namespace zelq {

/// What a thread knows of the time: the counter and the clock at one moment, and how long that holds.
struct ClockAnchor {
    std::uint64_t counter;
    std::int64_t timeNs;
    std::uint32_t validTicks;  // 0: ask the clock
    std::uint32_t nsPerTick;   // in units of 2^-31
};

extern __attribute__((tls_model("initial-exec"))) __constinit thread_local ClockAnchor clockAnchor;

/// Finds out whether the counter can be used. Called once, before the first line.
void prepareFastClock();

/// Asks the kernel's clock and anchors this thread anew.
std::int64_t askClock();

/// Nanoseconds since 1970-01-01 00:00 UTC. Safe in a signal handler.
inline std::int64_t wallClockNs() {
    ClockAnchor const& anchor = clockAnchor;
    std::uint64_t const elapsed = __rdtsc() - anchor.counter;
    if (__builtin_expect(elapsed < anchor.validTicks, 1)) {
        return anchor.timeNs +
               static_cast<std::int64_t>(std::uint64_t{static_cast<std::uint32_t>(elapsed)} * anchor.nsPerTick >> 31);
    }
    return askClock();
}

}  // namespace zelq

#endif
