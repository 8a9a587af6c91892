#include "services/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>
#include <utility>

#include "common/statefolder.h"
#include "zelqplatform/errorlog_service.h"

namespace zelq {
namespace {

constexpr char lockName[] = "errors.lock";
constexpr int lockPatienceMs = 10000;

class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() { reset(-1); }

    int get() const noexcept { return number_; }
    void reset(int number) noexcept {
        if (number_ >= 0) {
            close(number_);
        }
        number_ = number;
    }
    void swap(Descriptor& other) noexcept { std::swap(number_, other.number_); }

private:
    int number_;
};

// The folder is the user's own, yet what lies under a name in it is looked at before it is used:
// a link could lead anywhere, and a fifo would block for ever. Returns 0 or an errno.
int openFile(int folder, char const* name, Descriptor& file) {
    file.reset(openat(folder, name, O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
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

int elapsedMs(timespec const& since) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int>((now.tv_sec - since.tv_sec) * 1000 + (now.tv_nsec - since.tv_nsec) / 1000000);
}

/// The store's lock. Every call opens the lock file anew: flock() then excludes threads of one
/// process as well as processes, no mutex can be left locked in a forked child, and the kernel
/// releases the lock of a process that dies.
class StoreLock {
public:
    StoreLock() = default;
    StoreLock(StoreLock const&) = delete;
    StoreLock& operator=(StoreLock const&) = delete;
    ~StoreLock() { release(); }

    /// Returns 0 or an errno; EAGAIN when the lock stayed taken.
    int acquire(int folder) {
        timespec begin;
        clock_gettime(CLOCK_MONOTONIC, &begin);
        for (long pauseNs = 20000;; pauseNs = pauseNs < 4000000 ? pauseNs * 2 : pauseNs) {
            if (file_.get() < 0) {
                if (int const failure = openFile(folder, lockName, file_); failure != 0) {
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
            if (elapsedMs(begin) >= lockPatienceMs) {
                return EAGAIN;
            }
            timespec const pause = {0, pauseNs};
            nanosleep(&pause, nullptr);
        }
    }

    // Unlocked by name, since closing is not enough: a child that another thread has just forked
    // holds a copy of the descriptor.
    void release() noexcept {
        if (file_.get() >= 0) {
            flock(file_.get(), LOCK_UN);
            file_.reset(-1);
        }
    }

private:
    Descriptor file_;
};

// Moves every file to the next number, the oldest over its predecessor. Returns false when the
// newest is still in its place: after any failure the loop ends, because the next move would
// overwrite a file that could not get out of the way.
bool rotate(int folder, unsigned files) {
    for (unsigned index = files - 1; index > 0; --index) {
        char from[storeNameSize];
        char to[storeNameSize];
        storeFileName(index - 1, from);
        storeFileName(index, to);
        if (renameat(folder, from, folder, to) != 0 && errno != ENOENT) {
            return false;
        }
    }
    // Files that a larger ZELQ_STORE_FILES once allowed.
    for (unsigned index = files; index < storeFilesMaximum; ++index) {
        char name[storeNameSize];
        storeFileName(index, name);
        if (unlinkat(folder, name, 0) != 0) {
            break;
        }
    }
    return true;
}

StoreOutcome failed(xlog_result result, int crc) {
    return {result, crc};
}

// One write(2) for the whole line, so that a reader or a crash meets at most one torn line. What
// could be written in part only is taken back.
StoreOutcome writeLine(int file, off_t oldSize, char const* line, std::size_t size) {
    ssize_t written = 0;
    do {
        written = write(file, line, size);
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(size)) {
        return {XLOG_OK, 0};
    }
    int const failure = written < 0 ? errno : ENOSPC;
    // Should this fail too, the piece stays as a torn line, which the next writer closes.
    int const ignored = ftruncate(file, oldSize);
    static_cast<void>(ignored);
    return failed(XLOG_WRITE_FAILED, failure);
}

/// Opens the newest file with room for `size` bytes, rotating first if need be.
StoreOutcome openNewest(int folder, std::size_t size, Descriptor& file, off_t* fileSize) {
    char name[storeNameSize];
    storeFileName(0, name);
    if (int const failure = openFile(folder, name, file); failure != 0) {
        return failed(XLOG_NO_STORE, failure);
    }
    *fileSize = lseek(file.get(), 0, SEEK_END);
    if (*fileSize < 0) {
        return failed(XLOG_NO_STORE, errno);
    }
    auto const limit = static_cast<off_t>(sizeFromEnvironment("ZELQ_STORE_SIZE", 16U << 20, 4096, 1U << 30));
    auto const files = static_cast<unsigned>(sizeFromEnvironment("ZELQ_STORE_FILES", 8, 2, storeFilesMaximum));
    if (*fileSize > 0 && *fileSize + static_cast<off_t>(size) > limit && rotate(folder, files)) {
        // If no new file can be had, the record goes to the end of the old one: that is still the
        // newest record in the newest file, and better than none.
        Descriptor fresh;
        if (openFile(folder, name, fresh) == 0) {
            file.swap(fresh);
            *fileSize = 0;
        }
    }
    // An empty file may be one that was created a moment ago. Its name is made durable before the
    // first record goes in, whoever created it: a file with records in it has its name on disk.
    if (*fileSize == 0 && fsync(folder) != 0 && errno != EINVAL) {
        return failed(XLOG_WRITE_FAILED, errno);
    }
    return {XLOG_OK, 0};
}

bool endsInNewline(int file, off_t size) {
    char last = '\n';
    return size == 0 || (pread(file, &last, 1, size - 1) == 1 && last == '\n');
}

}  // namespace

StoreOutcome appendToStore(char const* line, std::size_t size) noexcept {
    int folderNumber = -1;
    if (int const failure = openStateFolder(FolderUse::store, true, &folderNumber); failure != 0) {
        return failed(XLOG_NO_FOLDER, failure);
    }
    Descriptor const folder(folderNumber);
    StoreLock lock;
    if (int const failure = lock.acquire(folder.get()); failure != 0) {
        return failed(XLOG_NO_LOCK, failure);
    }
    Descriptor file;
    off_t fileSize = 0;
    StoreOutcome outcome = openNewest(folder.get(), size, file, &fileSize);
    if (outcome.result != XLOG_OK) {
        return outcome;
    }
    std::size_t const skip = endsInNewline(file.get(), fileSize) ? 1 : 0;
    outcome = writeLine(file.get(), fileSize, line + skip, size - skip);
    if (outcome.result != XLOG_OK) {
        return outcome;
    }
    // The slow part is done without the lock, so that several writers wait for the disk together.
    // A rotation in between does not matter: the descriptor stays with the file.
    lock.release();
    if (fdatasync(file.get()) != 0) {
        return failed(XLOG_SYNC_FAILED, errno);
    }
    return {XLOG_OK, 0};
}

}  // namespace zelq
