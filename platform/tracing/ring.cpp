#include "tracing/ring.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>

#include "common/errnokeeper.h"
#include "common/statefolder.h"
#include "tracing/fastclock.h"
#include "tracing/ringfile.h"

namespace zelq {
namespace {

static_assert(sizeof(ProcessRing) == 2 * ringPageSize);

constexpr int maxTickets = 16;  // for one line

// A thread's id is good only together with the process id it was asked for: a child inherits this.
struct ThreadIdentity {
    std::uint32_t pid;
    std::uint32_t tid;
};
__attribute__((tls_model("initial-exec"))) __constinit thread_local ThreadIdentity threadIdentity{};

bool isUsable(void* address) {
    return address != MAP_FAILED;
}

void adoptMapping(ProcessRing* ring, void* address, std::uint64_t slotCount) {
    ring->header = static_cast<RingHeader*>(address);
    ring->slots = reinterpret_cast<RingSlot*>(static_cast<char*>(address) + ringHeaderSize);
    ring->slotMask = slotCount - 1;
    ring->slotCountLog2 = slotCountLog2(slotCount);
}

void unmapRing(ProcessRing* ring) {
    munmap(ring->header, ringFileSize(ring->slotMask + 1));
}

std::uint64_t configuredSize() {
    std::uint64_t const size = sizeFromEnvironment("ZELQ_RING_SIZE", ringSizeDefault, ringSizeMin, ringSizeMax);
    return std::uint64_t{1} << (63 - __builtin_clzll(size));
}

// A file with holes would end a writer with SIGBUS once its filesystem is full.
bool hasAllMemory(RingFile const& file) {
    struct stat status;
    if (fstat(file.descriptor, &status) != 0) {
        return false;
    }
    if (status.st_blocks >= status.st_size / 512) {
        return true;
    }
    return fallocate(file.descriptor, 0, 0, status.st_size) == 0 || errno == EOPNOTSUPP;
}

int mapRingFile(RingFile const& file, ProcessRing* ring) {
    if (!hasAllMemory(file)) {
        return ENOSPC;
    }
    std::size_t const size = ringFileSize(file.slotCount);
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor, 0);
    if (!isUsable(address)) {
        return errno;
    }
    mprotect(address, ringPageSize, PROT_READ);
    adoptMapping(ring, address, file.slotCount);
    return 0;
}

__attribute__((noinline)) std::uint32_t askPid(ProcessRing& ring) {
    auto const pid = static_cast<std::uint32_t>(getpid());
    if (ring.forgetsPid) {
        ring.pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

__attribute__((noinline)) std::uint32_t askTid(std::uint32_t pid) {
    threadIdentity.tid = static_cast<std::uint32_t>(gettid());
    threadIdentity.pid = pid;
    return threadIdentity.tid;
}

bool isDead(std::uint32_t pid) {
    if (pid == 0) {
        return true;  // never a writer's, and kill() takes it for a whole group
    }
    ErrnoKeeper const keeper;
    return kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

bool take(RingSlot& slot, std::uint64_t seen, std::uint64_t mine) {
    return slot.control.compare_exchange_strong(seen, mine, std::memory_order_acquire, std::memory_order_relaxed);
}

// The slot is busy, or holds this lap or a later one. A lap that the ticket counter has not reached
// cannot be: it is damage, as is a finished line with this very ticket, and both are written over.
__attribute__((noinline)) bool takeDisputed(ProcessRing& ring, RingSlot& slot, std::uint64_t seen, std::uint64_t mine) {
    std::uint64_t const counter = ring.header->nextTicket.load(std::memory_order_relaxed);
    bool const damaged = slotLap(seen) > ticketLap(counter, ring.slotCountLog2);
    if (isBusy(seen)) {
        return (damaged || isDead(slotOwner(seen))) && take(slot, seen, mine);
    }
    return (damaged || slotLap(seen) == slotLap(mine)) && take(slot, seen, mine);
}

// Nobody else may write into the slot while it is held: a writer one lap behind or ahead finds the
// busy bit, and of two that see it free only one wins the exchange.
inline bool takeSlot(ProcessRing& ring, std::uint64_t ticket, std::uint32_t pid) {
    RingSlot& slot = ring.slots[ticket & ring.slotMask];
    std::uint64_t const lap = ticketLap(ticket, ring.slotCountLog2);
    std::uint64_t const mine = slotControl(lap, pid, true);
    std::uint64_t const seen = slot.control.load(std::memory_order_relaxed);
    if (__builtin_expect(!isBusy(seen) && slotLap(seen) < lap, 1)) {
        return take(slot, seen, mine);
    }
    return takeDisputed(ring, slot, seen, mine);
}

__attribute__((noinline)) bool takeAnotherSlot(ProcessRing& ring, std::uint64_t* ticket, std::uint32_t pid) {
    for (int tickets = 1; tickets < maxTickets; ++tickets) {
        *ticket = ring.header->nextTicket.fetch_add(1, std::memory_order_relaxed);
        if (takeSlot(ring, *ticket, pid)) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::atomic<ProcessRing*> theRing{nullptr};

ProcessRing* makeProcessRing() {
    ErrnoKeeper const keeper;
    void* const memory = mmap(nullptr, sizeof(ProcessRing), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (!isUsable(memory)) {
        return nullptr;
    }
    auto* const ring = new (memory) ProcessRing{};
    prepareFastClock();
    ring->forgetsPid = madvise(&ring->pid, ringPageSize, MADV_WIPEONFORK) == 0;
    if (mapSharedRing(ring) != 0 && mapPrivateRing(ring) != 0) {
        munmap(memory, sizeof(ProcessRing));
        return nullptr;
    }
    ProcessRing* first = nullptr;
    if (theRing.compare_exchange_strong(first, ring, std::memory_order_acq_rel)) {
        return ring;
    }
    unmapRing(ring);
    munmap(memory, sizeof(ProcessRing));
    return first;
}

int mapSharedRing(ProcessRing* ring) {
    int folder = -1;
    if (int const failure = openStateFolder(FolderUse::ring, true, &folder); failure != 0) {
        return failure;
    }
    RingFile file;
    int failure = openRingFile(folder, O_RDWR, &file);
    if (failure == ENOENT) {
        failure = createRingFile(folder, configuredSize());
        if (failure == 0) {
            failure = openRingFile(folder, O_RDWR, &file);
        }
    }
    close(folder);
    if (failure == 0) {
        failure = mapRingFile(file, ring);
        close(file.descriptor);
    }
    return failure;
}

int mapPrivateRing(ProcessRing* ring) {
    std::uint64_t const slotCount = ringSizePrivate / ringSlotSize;
    void* const address = mmap(nullptr, ringFileSize(slotCount), PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (!isUsable(address)) {
        return errno;
    }
    adoptMapping(ring, address, slotCount);
    ring->header->nextTicket.store(slotCount, std::memory_order_relaxed);
    return 0;
}

void writeLine(ProcessRing& ring, std::uint32_t handle, char const* text, std::size_t length) {
    std::uint32_t pid = ring.pid.load(std::memory_order_relaxed);
    if (__builtin_expect(pid == 0, 0)) {
        pid = askPid(ring);
    }
    std::uint32_t const tid = __builtin_expect(threadIdentity.pid == pid, 1) ? threadIdentity.tid : askTid(pid);
    std::atomic<std::uint64_t>& counter = ring.header->nextTicket;
    // The clock stands before the ticket: what lies between ticket and slot is a chance to be lapped.
    std::int64_t const timeNs = wallClockNs();
    std::uint64_t ticket = counter.fetch_add(1, std::memory_order_relaxed);
    if (__builtin_expect(!takeSlot(ring, ticket, pid), 0) && !takeAnotherSlot(ring, &ticket, pid)) {
        return;
    }
    RingSlot& slot = ring.slots[ticket & ring.slotMask];
    slot.ticket = ticket;
    slot.timeNs = timeNs;
    slot.pid = pid;
    slot.tid = tid;
    slot.handle = handle;
    slot.length = static_cast<std::uint32_t>(length);
    std::memcpy(slot.text, text, length);
    slot.text[length] = '\0';
    slot.control.store(slotControl(ticketLap(ticket, ring.slotCountLog2), pid, false), std::memory_order_release);
}

}  // namespace zelq
