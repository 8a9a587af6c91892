#include "services/linecache.h"

#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <ctime>
#include <new>
#include <utility>

#include "common/systemcalls.h"

namespace zelq {
namespace {

// Of this thread: others may fork at the same time.
thread_local bool lockedForFork = false;

class SharedLock {
public:
    explicit SharedLock(CacheLock& lock) : lock_(lock), held_(lock.tryShared()) {}
    ~SharedLock() {
        if (held_) {
            lock_.unlockShared();
        }
    }
    SharedLock(SharedLock const&) = delete;
    SharedLock& operator=(SharedLock const&) = delete;

    explicit operator bool() const { return held_; }

private:
    CacheLock& lock_;
    bool held_;
};

// An interrupted frame and one that returns to the same address may lie in different functions.
std::uint64_t keyOf(Frame frame) {
    return std::uint64_t{frame.address} << 1 | (frame.interrupted ? 1 : 0);
}

int readCounters(dl_phdr_info* module, std::size_t, void* target) noexcept {
    *static_cast<ModuleChanges*>(target) = {module->dlpi_adds, module->dlpi_subs};
    return 1;  // the counters are the same with every module
}

}  // namespace

LineCache lineCache;

namespace {

// While the library is loaded no other thread uses it yet. Should there be no memory for the
// handlers so early, a child forked by one thread while another is in here could hang.
[[maybe_unused]] int const handlersRegistered = pthread_atfork(
    [] { lineCache.beforeFork(); }, [] { lineCache.afterForkInParent(); }, [] { lineCache.afterForkInChild(); });

}  // namespace

// Readers are not turned away for a single line: each would have to do much more than to wait.
bool CacheLock::tryExclusive() noexcept {
    for (int attempts = 100; attempts != 0; --attempts) {
        int unused = 0;
        if (users_.compare_exchange_strong(unused, writer, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
        sched_yield();
    }
    return false;
}

bool CacheLock::tryExclusiveFirst() noexcept {
    bool isWriter = false;
    for (int attempts = 200; attempts != 0; --attempts) {
        isWriter = isWriter || (users_.fetch_or(writer, std::memory_order_relaxed) & writer) == 0;
        if (isWriter && users_.load(std::memory_order_acquire) == writer) {
            return true;
        }
        timespec const pause = {0, 50000};
        nanosleep(&pause, nullptr);
    }
    if (isWriter) {
        users_.fetch_and(~writer, std::memory_order_relaxed);
    }
    return false;
}

// Under the lock, because the loader has one as well, which a fork would leave held in the child
// for ever: so no thread forks while another one is in here.
std::optional<ModuleChanges> LineCache::moduleChanges() noexcept {
    SharedLock const lock(lock_);
    ModuleChanges changes = {};
    return lock && dl_iterate_phdr(readCounters, &changes) == 1 ? std::optional(changes) : std::nullopt;
}

std::size_t LineCache::appendKnown(ModuleChanges const& changes, Frame const* frames, std::size_t first,
                                   std::size_t count, MallocText& text) {
    SharedLock const lock(lock_);
    if (!lock || lines_ == nullptr || !(changes_ == changes)) {
        return first;
    }
    for (; first < count; ++first) {
        auto const found = lines_->find(keyOf(frames[first]));
        if (found == lines_->end()) {
            break;
        }
        appendNumbered(text, first, found->second);
    }
    return first;
}

void LineCache::remember(ModuleChanges const& changes, Frame frame, std::string line) noexcept {
    if (!lock_.tryExclusive()) {
        return;
    }
    try {
        if (lines_ == nullptr) {
            lines_ = new Lines;
        }
        // Should another thread have seen later changes already, it will find its own ones missing
        // and forget these: a line is never used with other changes than those it was written with.
        if (!(changes_ == changes) || lines_->size() >= lineLimit) {
            lines_->clear();
            changes_ = changes;
        }
        lines_->emplace(keyOf(frame), std::move(line));
    } catch (std::bad_alloc const&) {
        // then the line is written anew the next time
    }
    lock_.unlockExclusive();
}

void LineCache::beforeFork() noexcept {
    NoCancellation const noCancellation;
    lockedForFork = !isClosed_ && lock_.tryExclusiveFirst();
}

void LineCache::afterForkInParent() noexcept {
    if (lockedForFork) {
        lock_.unlockExclusive();
    }
}

// The threads that kept the lock from this one do not exist here, and may have left the loader's
// lock held: this process does without the cache, and never asks for the loader's lock.
void LineCache::afterForkInChild() noexcept {
    if (lockedForFork) {
        lock_.unlockExclusive();
    } else {
        isClosed_ = true;
        lock_.closeForever();
    }
}

}  // namespace zelq
