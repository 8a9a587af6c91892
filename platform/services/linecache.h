#ifndef ZELQ_LINECACHE_H
#define ZELQ_LINECACHE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "services/frameline.h"

// Looking a frame up costs many microseconds, and programs report the same few places again and
// again: each line is written once, and remembered until modules are loaded or unloaded.

namespace zelq {

/// Many readers or one writer, and never a wait without an end.
///
/// Backtraces are taken while the caller, or a thread that waits for it in an atfork handler or a
/// library's initialisation, holds any locks. A lock that anyone waited for without limit could
/// close a circle with those; here a reader that does not get it does its work without the cache.
class CacheLock {
public:
    bool tryShared() noexcept {
        int users = users_.load(std::memory_order_relaxed);
        while (users < writer) {
            if (users_.compare_exchange_weak(users, users + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }
    void unlockShared() noexcept { users_.fetch_sub(1, std::memory_order_release); }

    /// Waits a few moments for one without a reader.
    bool tryExclusive() noexcept;

    /// Turns new readers away and waits some 20 ms for the others.
    bool tryExclusiveFirst() noexcept;

    void unlockExclusive() noexcept { users_.store(0, std::memory_order_release); }

    /// Lets nobody in any more.
    void closeForever() noexcept { users_.store(writer, std::memory_order_relaxed); }

private:
    static constexpr int writer = 1 << 30;

    std::atomic<int> users_{0};  ///< number of readers, plus `writer`
};

/// How often modules have come and gone. While it stays, every address keeps its meaning.
struct ModuleChanges {
    unsigned long long loads;
    unsigned long long unloads;

    bool operator==(ModuleChanges const& other) const { return loads == other.loads && unloads == other.unloads; }
};

/// The lines of the frames seen so far. Never destroyed: threads may outlive static destruction.
class LineCache {
public:
    /// Lines remembered at most; with one more, all are forgotten.
    static constexpr std::size_t lineLimit = 4096;

    constexpr LineCache() = default;

    /// The present state. None when the cache is not to be had: then leave it alone.
    std::optional<ModuleChanges> moduleChanges() noexcept;

    /// Appends the lines of `frames` from `first` on, each behind its number, up to the first frame
    /// that is not remembered; returns that frame's index, or `count`. Throws std::bad_alloc.
    std::size_t appendKnown(ModuleChanges const& changes, Frame const* frames, std::size_t first, std::size_t count,
                            MallocText& text);

    /// Remembers a line written after `changes` were read. Does nothing when that is not possible now.
    void remember(ModuleChanges const& changes, Frame frame, std::string line) noexcept;

    void beforeFork() noexcept;
    void afterForkInParent() noexcept;
    void afterForkInChild() noexcept;

private:
    using Lines = std::unordered_map<std::uint64_t, std::string>;

    CacheLock lock_;
    ModuleChanges changes_ = {};  ///< what lines_ is valid for
    Lines* lines_ = nullptr;
    bool isClosed_ = false;
};

/// The one of this process.
extern LineCache lineCache;

}  // namespace zelq

#endif
