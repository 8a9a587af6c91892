#ifndef ZELQ_RING_H
#define ZELQ_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tracing/ringlayout.h"

// The writing side of the trace ring: the one ring a process writes to, and how a line gets in.

namespace zelq {

/// The ring of this process: the user's shared one, or a small private one when that cannot be
/// used. The process remembers here what it found when it mapped the ring; the ring itself is never
/// asked for its size. Lives on pages of its own, mapped once and never unmapped, so that static
/// constructors, destructors and late threads can trace.
struct ProcessRing {
    RingHeader* header;
    RingSlot* slots;
    std::uint64_t slotMask;
    unsigned slotCountLog2;
    bool forgetsPid;  // the kernel empties the second page in a child, however that came to be

    alignas(ringPageSize) std::atomic<std::uint32_t> pid;  // 0: ask the kernel
};

/// Set once, by makeProcessRing().
extern std::atomic<ProcessRing*> theRing;

/// Maps the process's ring. Keeps errno; takes no lock: threads that come first together (or a
/// signal handler amid one of them) each map one, and all but one let go of theirs.
ProcessRing* makeProcessRing();

/// The process's ring, mapped by the first call. Null when there is no memory for one.
inline ProcessRing* processRing() {
    ProcessRing* const ring = theRing.load(std::memory_order_acquire);
    return __builtin_expect(ring != nullptr, 1) ? ring : makeProcessRing();
}

/// Writes one zero-terminated line; a longer one than ringLineMax characters keeps its beginning. Keeps
/// errno. Never waits: the line is dropped if it meets too many slots in a row that others hold.
/// Returns 0 like the service's functions, which end in this call.
int writeLine(ProcessRing& ring, std::uint32_t handle, char const* line);

/// Maps the user's shared ring, made if need be, into `*ring`. Returns 0 or an errno.
int mapSharedRing(ProcessRing* ring);

/// Maps a small ring that only this process sees (and, as a copy, its children).
int mapPrivateRing(ProcessRing* ring);

}  // namespace zelq

#endif
