#ifndef ZELQ_RINGLAYOUT_H
#define ZELQ_RINGLAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>

// The trace ring as it lies in memory and in its file. 32-bit and 64-bit programs map one ring at
// the same time, so every field has a fixed width and a fixed offset.
//
//   page 0   identity: tells a ring from any other file. Writers map it read-only, so that no
//            stray pointer of a traced program can spoil the ring for programs started later.
//   page 1   the ticket counter, alone on its cache line
//   then     the slots, a power of two of them; their number follows from the file's size
//
// A line takes a ticket; ticket modulo slot count is its slot, ticket divided by slot count its
// lap. The first ticket belongs to lap 1: a control word of zero is a slot never written.
//
// A slot's control word holds, from the top: the lap (41 bits), the writer's process id (22 bits;
// Linux gives none above) and the busy bit. A writer may touch the rest of the slot only between
// setting the busy bit by compare-and-swap and clearing it. Readers copy a slot and keep the copy
// only if the control word was the same, not busy, before and after.
//
// The numbers below live in files of running systems: change the version with any of them.

namespace zelq {

constexpr char ringFileName[] = "ring";
constexpr std::uint64_t ringMagic = 0x6563617274514c5aU;  // "ZLQtrace"
constexpr std::uint32_t ringVersion = 1;
constexpr std::size_t ringPageSize = 4096;
constexpr std::size_t ringHeaderSize = 2 * ringPageSize;
constexpr std::size_t ringSlotSize = 256;
constexpr std::size_t ringTextSize = 200;  // with the terminating zero
constexpr std::size_t ringLineMax = ringTextSize - 1;

// The slots of a ring, in bytes. The upper limit fits into the address space of a 32-bit program.
constexpr std::uint64_t ringSizeMin = 64U << 10;
constexpr std::uint64_t ringSizeMax = 256U << 20;
constexpr std::uint64_t ringSizeDefault = 4U << 20;
constexpr std::uint64_t ringSizePrivate = 512U << 10;

struct RingIdentity {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t slotSize;
};

struct RingHeader {
    RingIdentity identity;
    char unused[ringPageSize - sizeof(RingIdentity)];
    alignas(64) std::atomic<std::uint64_t> nextTicket;
    char rest[ringPageSize - sizeof(std::uint64_t)];
};

struct alignas(64) RingSlot {
    std::atomic<std::uint64_t> control;
    alignas(8) std::uint64_t ticket;
    alignas(8) std::int64_t timeNs;  // since 1970, UTC
    std::uint32_t pid;
    std::uint32_t tid;
    std::uint32_t handle;
    std::uint32_t length;  // of the text, without its zero
    char text[ringTextSize];
    char unused[16];
};

static_assert(sizeof(RingHeader) == ringHeaderSize && offsetof(RingHeader, nextTicket) == ringPageSize);
static_assert(offsetof(RingIdentity, version) == 8 && offsetof(RingIdentity, slotSize) == 12);
static_assert(sizeof(RingSlot) == ringSlotSize && alignof(RingSlot) == 64);
static_assert(offsetof(RingSlot, ticket) == 8 && offsetof(RingSlot, timeNs) == 16 && offsetof(RingSlot, pid) == 24);
static_assert(offsetof(RingSlot, tid) == 28 && offsetof(RingSlot, handle) == 32 && offsetof(RingSlot, length) == 36);
static_assert(offsetof(RingSlot, text) == 40);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && sizeof(std::atomic<std::uint64_t>) == 8);

constexpr std::uint64_t slotBusy = 1;
constexpr unsigned slotPidBits = 22;
constexpr unsigned slotLapShift = slotPidBits + 1;

constexpr std::uint64_t slotControl(std::uint64_t lap, std::uint32_t pid, bool busy) {
    return lap << slotLapShift | (std::uint64_t{pid} & ((1U << slotPidBits) - 1)) << 1 | (busy ? slotBusy : 0);
}

constexpr bool isBusy(std::uint64_t control) {
    return (control & slotBusy) != 0;
}

constexpr std::uint32_t slotOwner(std::uint64_t control) {
    return static_cast<std::uint32_t>(control >> 1) & ((1U << slotPidBits) - 1);
}

constexpr std::uint64_t slotLap(std::uint64_t control) {
    return control >> slotLapShift;
}

/// The lap of a ticket, cut to what a control word holds of it.
constexpr std::uint64_t ticketLap(std::uint64_t ticket, unsigned slotCountLog2) {
    return ticket >> slotCountLog2 & (~std::uint64_t{0} >> slotLapShift);
}

}  // namespace zelq

#endif
