#include "store/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <cerrno>
#include <ctime>

#include "common/systemcalls.h"
#include "store/layout.h"

namespace zelq {
namespace {

constexpr std::int64_t lockPatienceNs = 10000000000;

}  // namespace

int openStoreFile(int folder, char const* name, Descriptor& file) noexcept {
    constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    file.reset(openApart([&] { return uninterrupted([&] { return openat(folder, name, flags, 0600); }); }));
    if (file.get() < 0) {
        return errno;
    }
    struct stat status;
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return ENXIO;
    }
    return status.st_uid == geteuid() ? 0 : EPERM;
}

int StoreLock::acquire(int folder) noexcept {
    std::int64_t const end = clockNs(CLOCK_MONOTONIC) + lockPatienceNs;
    for (long pauseNs = 20000;; pauseNs = pauseNs < 4000000 ? pauseNs * 2 : pauseNs) {
        if (file_.get() < 0) {
            if (int const failure = openStoreFile(folder, storeLockName, file_); failure != 0) {
                return failure;
            }
        }
        if (flock(file_.get(), LOCK_EX | LOCK_NB) == 0) {
            // Whoever cleans up by hand may have removed the file between open and lock; other
            // writers then lock its successor.
            struct stat status;
            if (fstat(file_.get(), &status) == 0 && status.st_nlink > 0) {
                return 0;
            }
            file_.reset(-1);
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            return errno;
        }
        if (clockNs(CLOCK_MONOTONIC) >= end) {
            return EAGAIN;
        }
        timespec const pause = {0, pauseNs};
        nanosleep(&pause, nullptr);
    }
}

// Unlocked by name, since closing is not enough: a child that another thread has just forked
// holds a copy of the descriptor.
void StoreLock::release() noexcept {
    if (file_.get() >= 0) {
        flock(file_.get(), LOCK_UN);
        file_.reset(-1);
    }
}

}  // namespace zelq
