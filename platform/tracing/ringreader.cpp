#include "tracing/ringreader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/copybytes.h"
#include "common/statefolder.h"
#include "common/systemcalls.h"
#include "tracing/ringfile.h"

namespace zelq {
namespace {

constexpr std::size_t chunkSlots = ringSizeMin / ringSlotSize;  // no ring is smaller
constexpr std::size_t chunkSize = chunkSlots * ringSlotSize;
constexpr std::uint64_t settleTickets = 64;
constexpr std::int64_t settleNs = 250000000;  // a living writer may have to wait for a processor

bool matches(TraceFilter const& filter, TraceEntry const& entry) {
    return filter.pid.value_or(entry.pid) == entry.pid && filter.tid.value_or(entry.tid) == entry.tid &&
           filter.handle.value_or(entry.handle) == entry.handle;
}

template <typename Number>
void copyNumber(unsigned char const* slot, std::size_t offset, Number* number) {
    std::memcpy(number, slot + offset, sizeof *number);
}

void copyNumbers(unsigned char const* slot, TraceEntry* entry) {
    copyNumber(slot, offsetof(RingSlot, ticket), &entry->ticket);
    copyNumber(slot, offsetof(RingSlot, timeNs), &entry->timeNs);
    copyNumber(slot, offsetof(RingSlot, pid), &entry->pid);
    copyNumber(slot, offsetof(RingSlot, tid), &entry->tid);
    copyNumber(slot, offsetof(RingSlot, handle), &entry->handle);
    copyNumber(slot, offsetof(RingSlot, length), &entry->length);
    entry->length = std::min(entry->length, static_cast<std::uint32_t>(ringLineMax));
}

void copyText(unsigned char const* slot, TraceEntry* entry) {
    copyBytes(entry->text, slot + offsetof(RingSlot, text), entry->length);
    entry->text[entry->length] = '\0';
}

bool readFully(int descriptor, void* to, std::size_t size, std::uint64_t offset) {
    return pread(descriptor, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

std::uint64_t controlAt(unsigned char const* slot) {
    std::uint64_t control;
    std::memcpy(&control, slot, sizeof control);
    return control;
}

}  // namespace

int RingReader::open() {
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::ring, MissingFolder::leave, folder); failure != 0) {
        problem_ = failure == ENOENT ? "does not exist" : "is in a folder that cannot be used";
        return failure;
    }
    RingFile file;
    int const failure = openRingFile(folder.get(), O_RDONLY, file);
    problem_ = file.problem;
    if (failure != 0) {
        return failure;
    }
    attach(nullptr, nullptr, file.slotCount);
    descriptor_ = std::move(file.descriptor);
    buffer_ = std::make_unique<unsigned char[]>(2 * chunkSize);
    return 0;
}

void RingReader::attach(RingHeader const* header, RingSlot const* slots, std::uint64_t slotCount) {
    header_ = header;
    slots_ = slots;
    slotCount_ = slotCount;
    slotCountLog2_ = zelq::slotCountLog2(slotCount);
    problem_ = "";
    positioned_ = false;
    markedTimeNs_ = 0;
    settledTicket_ = 0;
    chunkLoaded_ = false;
}

bool RingReader::isRemoved() const {
    struct stat status;
    return header_ == nullptr && descriptor_.get() >= 0 && fstat(descriptor_.get(), &status) == 0 &&
           status.st_nlink == 0;
}

bool RingReader::readNextTicket(std::uint64_t* ticket) const {
    if (header_ != nullptr) {
        *ticket = header_->nextTicket.load(std::memory_order_acquire);
        return true;
    }
    return descriptor_.get() >= 0 &&
           readFully(descriptor_.get(), ticket, sizeof *ticket, offsetof(RingHeader, nextTicket));
}

// Reads the chunk three times, because within one read the kernel copies in whatever order suits
// it: only a slot's bytes of the second time lie safely between its control words of the first and
// of the third. A slot that was written meanwhile is marked busy; what is cut off the file, empty.
void RingReader::loadChunk(std::uint64_t firstSlot) {
    chunkFirst_ = firstSlot;
    chunkLoaded_ = true;
    unsigned char* const chunk = buffer_.get();
    unsigned char* const check = chunk + chunkSize;
    std::uint64_t const offset = ringHeaderSize + firstSlot * ringSlotSize;
    std::uint64_t before[chunkSlots];
    bool isWhole = readFully(descriptor_.get(), check, chunkSize, offset);
    for (std::size_t i = 0; i < chunkSlots; ++i) {
        before[i] = controlAt(check + i * ringSlotSize);
    }
    isWhole = isWhole && readFully(descriptor_.get(), chunk, chunkSize, offset) &&
              readFully(descriptor_.get(), check, chunkSize, offset);
    for (std::size_t i = 0; i < chunkSlots; ++i) {
        std::uint64_t const after = controlAt(check + i * ringSlotSize);
        std::uint64_t const control = !isWhole ? 0 : after == before[i] ? after : after | slotBusy;
        std::memcpy(chunk + i * ringSlotSize, &control, sizeof control);
    }
}

RingReader::Found RingReader::readTicket(std::uint64_t const& ticket, TraceFilter const& filter, TraceEntry* entry) {
    std::uint64_t const index = ticket & (slotCount_ - 1);
    bool const isMapped = header_ != nullptr;
    if (!isMapped && (!chunkLoaded_ || index - chunkFirst_ >= chunkSlots)) {
        loadChunk(index & ~std::uint64_t{chunkSlots - 1});
    }
    unsigned char const* const slot = isMapped ? reinterpret_cast<unsigned char const*>(slots_ + index)
                                               : buffer_.get() + (index - chunkFirst_) * ringSlotSize;
    std::uint64_t const control = isMapped ? slots_[index].control.load(std::memory_order_acquire) : controlAt(slot);
    std::uint64_t const lap = ticketLap(ticket, slotCountLog2_);
    if (slotLap(control) > lap) {
        return Found::overrun;
    }
    if (slotLap(control) < lap || isBusy(control)) {
        return Found::pending;
    }
    copyNumbers(slot, entry);
    bool const isMatch = matches(filter, *entry);
    if (isMatch) {
        copyText(slot, entry);
    }
    // A writer may be at the mapped slot right now; this is where a torn copy is found out.
    std::atomic_thread_fence(std::memory_order_acquire);
    if (isMapped && slots_[index].control.load(std::memory_order_relaxed) != control) {
        return Found::pending;
    }
    if (entry->ticket != ticket || slotOwner(control) == 0) {
        return Found::overrun;  // no line of a writer
    }
    return isMatch ? Found::line : Found::otherLine;
}

// Gives lines that are being written just now the time to get complete: follow() will not come
// back to them once newest() has passed. Not while the ring's own process waits for a snapshot.
void RingReader::settle(std::uint64_t end) {
    TraceEntry entry;
    for (int waits = 0; header_ == nullptr && waits < 20; ++waits) {
        bool isPending = false;
        chunkLoaded_ = false;
        for (std::uint64_t ticket = end - settleTickets; ticket != end && !isPending; ++ticket) {
            isPending = readTicket(ticket, TraceFilter{}, &entry) == Found::pending;
        }
        if (!isPending) {
            return;
        }
        struct timespec const pause{0, 1000000};
        nanosleep(&pause, nullptr);
    }
}

std::size_t RingReader::newest(TraceFilter const& filter, TraceEntry* entries, std::size_t capacity) {
    std::uint64_t end = 0;
    if (!readNextTicket(&end)) {
        return 0;
    }
    settle(end);
    chunkLoaded_ = false;
    std::size_t first = capacity;
    for (std::uint64_t back = 1; back <= slotCount_ && first > 0; ++back) {
        std::uint64_t const ticket = end - back;
        if (readTicket(ticket, filter, &entries[first - 1]) == Found::line) {
            --first;
        }
    }
    std::size_t const count = capacity - first;
    if (first != 0) {
        std::memmove(entries, entries + first, count * sizeof *entries);
    }
    continueAfter(end - 1);
    return count;
}

TraceProgress RingReader::follow(TraceFilter const& filter, TraceEntry* entries, std::size_t capacity) {
    TraceProgress progress{0, 0, false};
    std::uint64_t end = 0;
    if (!readNextTicket(&end)) {
        return progress;
    }
    if (std::int64_t const now = clockNs(CLOCK_MONOTONIC); now - markedTimeNs_ >= settleNs) {
        settledTicket_ = markedTimeNs_ != 0 ? markedTicket_ : end - slotCount_;
        markedTicket_ = end;
        markedTimeNs_ = now;
    }
    if (!positioned_) {
        // Tickets of lap 0 were never given out.
        continueAfter(std::max(end, 2 * slotCount_) - slotCount_ - 1);
    }
    auto const ahead = static_cast<std::int64_t>(end - position_);
    if (ahead < 0) {
        position_ = end;  // the counter was damaged, and began again below
    } else if (static_cast<std::uint64_t>(ahead) > slotCount_) {
        progress.overrun = static_cast<std::uint64_t>(ahead) - slotCount_;
        position_ = end - slotCount_;
    }
    chunkLoaded_ = false;
    for (; position_ != end; ++position_) {
        if (progress.count == capacity) {
            progress.more = true;
            break;
        }
        Found const found = readTicket(position_, filter, &entries[progress.count]);
        if (found == Found::pending && static_cast<std::int64_t>(position_ - settledTicket_) >= 0) {
            break;
        }
        progress.count += found == Found::line ? 1 : 0;
        progress.overrun += found == Found::pending || found == Found::overrun ? 1 : 0;
    }
    return progress;
}

void RingReader::continueAfter(std::uint64_t ticket) {
    position_ = ticket + 1;
    positioned_ = true;
}

}  // namespace zelq
