#include "tracing/ring.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>

#include <emmintrin.h>

#include "common/copybytes.h"
#include "common/statefolder.h"
#include "common/systemcalls.h"
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

int mapRingFile(RingFile const& file, ProcessRing* ring) {
    if (!keepsItsMemory(file.descriptor.get())) {
        return ENOSPC;
    }
    std::size_t const size = ringFileSize(file.slotCount);
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor.get(), 0);
    if (!isUsable(address)) {
        return errno;
    }
    mprotect(address, ringPageSize, PROT_READ);
    adoptMapping(ring, address, file.slotCount);
    return 0;
}

// A child made by vfork() runs on its parent's memory, as the thread that the C library keeps there, and what
// it remembered would be the parent's. The number of a thread's processor clock tells which thread that is.
bool isThreadOfMemory(pid_t tid) {
    clockid_t clock = 0;
    return pthread_getcpuclockid(pthread_self(), &clock) == 0 && ~(clock >> 3) == tid;
}

__attribute__((noinline)) std::uint32_t askPid(ProcessRing& ring) {
    auto const pid = static_cast<std::uint32_t>(getpid());
    if (ring.forgetsPid && isThreadOfMemory(gettid())) {
        ring.pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

__attribute__((noinline)) std::uint32_t askTid(std::uint32_t pid) {
    pid_t const tid = gettid();
    if (isThreadOfMemory(tid)) {
        threadIdentity = {pid, static_cast<std::uint32_t>(tid)};
    }
    return static_cast<std::uint32_t>(tid);
}

// Asking the kernel for the owner may end a process that confines its own system calls, and where processes
// are numbered more than once nothing follows from the answer.
bool isGivenUp(ProcessRing const& ring, std::uint64_t seen, std::uint64_t lap) {
    constexpr std::uint64_t linesNobodyNeeds = std::uint64_t{1} << 26;  // seconds of a ring that does nothing else
    return slotOwner(seen) == 0 || slotLap(seen) + (linesNobodyNeeds >> ring.slotCountLog2) <= lap;
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
        return (damaged || isGivenUp(ring, seen, slotLap(mine))) && take(slot, seen, mine);
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

// Copies the line and its zero byte, and returns its length. A line was put together a moment ago in small
// pieces, and the processor is slow to give them back joined as the C library's functions for length and
// copy want them. So both are done in one walk, where nothing but the line's own memory is touched: an
// aligned chunk that holds a byte of the line lies on a page of it.
__attribute__((no_sanitize("address", "thread"))) inline std::size_t copyLine(char* to, char const* line) {
    constexpr std::size_t chunkSize = sizeof(__m128i);
    alignas(chunkSize) static constexpr unsigned char masks[2 * chunkSize] = {255, 255, 255, 255, 255, 255, 255, 255,
                                                                              255, 255, 255, 255, 255, 255, 255, 255};
    std::size_t at = 0;
    if (reinterpret_cast<std::uintptr_t>(line) % chunkSize == 0) {
        for (; at + chunkSize <= ringTextSize; at += chunkSize) {
            __m128i const chunk = _mm_load_si128(reinterpret_cast<__m128i const*>(line + at));
            auto const ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, _mm_setzero_si128())));
            auto* const target = reinterpret_cast<__m128i*>(to + at);
            if (ends != 0) {
                auto const length = static_cast<std::size_t>(__builtin_ctz(ends));
                auto const* const mask = reinterpret_cast<__m128i const*>(masks + chunkSize - length);
                _mm_storeu_si128(target, _mm_and_si128(chunk, _mm_loadu_si128(mask)));
                return at + length;
            }
            _mm_storeu_si128(target, chunk);
        }
    }
    std::size_t const length = at + strnlen(line + at, ringLineMax - at);
    copyBytes(to + at, line + at, length - at);
    to[length] = '\0';
    return length;
}

}  // namespace

std::atomic<ProcessRing*> theRing{nullptr};

ProcessRing* makeProcessRing() {
    ErrnoKeeper const keeper;
    NoCancellation const noCancellation;
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
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::ring, MissingFolder::make, folder); failure != 0) {
        return failure;
    }
    RingFile file;
    int failure = openRingFile(folder.get(), O_RDWR, file);
    if (failure == ENOENT) {
        failure = createRingFile(folder.get(), configuredSize());
        if (failure == 0) {
            failure = openRingFile(folder.get(), O_RDWR, file);
        }
    }
    return failure == 0 ? mapRingFile(file, ring) : failure;
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

// A slot was written a lap ago and has left the nearest caches since: taking it would wait for it, since
// that is an exchange. So the one after next is sent for; no other writer has begun with it yet, as a rule.
inline void sendForNext(ProcessRing const& ring, std::uint64_t ticket) {
    constexpr std::uint64_t distance = 2;
    constexpr std::size_t cacheLine = 64;
    auto const* const slot = reinterpret_cast<char const*>(ring.slots + ((ticket + distance) & ring.slotMask));
    __builtin_prefetch(slot, 1);
    __builtin_prefetch(slot + cacheLine, 1);
}

int writeLine(ProcessRing& ring, std::uint32_t handle, char const* line) {
    std::uint32_t pid = ring.pid.load(std::memory_order_relaxed);
    if (__builtin_expect(pid == 0, 0)) {
        pid = askPid(ring);
    }
    std::uint32_t const tid = __builtin_expect(threadIdentity.pid == pid, 1) ? threadIdentity.tid : askTid(pid);
    // The clock stands before the ticket: what lies between ticket and slot is a chance to be lapped.
    std::int64_t const timeNs = wallClockNs();
    std::uint64_t ticket = ring.header->nextTicket.fetch_add(1, std::memory_order_relaxed);
    if (__builtin_expect(!takeSlot(ring, ticket, pid), 0)) {
        std::uint64_t another = 0;
        if (!takeAnotherSlot(ring, &another, pid)) {
            return 0;
        }
        ticket = another;
    }
    RingSlot& slot = ring.slots[ticket & ring.slotMask];
    slot.ticket = ticket;
    slot.timeNs = timeNs;
    slot.pid = pid;
    slot.tid = tid;
    slot.handle = handle;
    slot.length = static_cast<std::uint32_t>(copyLine(slot.text, line));
    slot.control.store(slotControl(ticketLap(ticket, ring.slotCountLog2), pid, false), std::memory_order_release);
    sendForNext(ring, ticket);
    return 0;
}

}  // namespace zelq
