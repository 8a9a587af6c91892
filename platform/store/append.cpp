#include "store/append.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "common/statefolder.h"
#include "common/systemcalls.h"
#include "store/layout.h"
#include "store/lock.h"
#include "zelqplatform/errorlog_service.h"

namespace zelq {
namespace {

/// What has the name of a store file.
enum class Place { free, file, folder };

Place lookAt(int folder, unsigned index) {
    struct stat status;
    if (fstatat(folder, storeFileName(index).text, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? Place::free : Place::file;
    }
    return S_ISDIR(status.st_mode) ? Place::folder : Place::file;
}

// Removes the files that a larger ZELQ_STORE_FILES once allowed.
void removeBeyond(int folder, unsigned files) {
    for (unsigned index = files; index < storeFilesMaximum; ++index) {
        if (unlinkat(folder, storeFileName(index).text, 0) != 0 && errno == ENOENT) {
            break;
        }
    }
}

// Moves the files below the first free number to the next one each; without a free number the oldest
// file goes. So a rotation that failed or died halfway costs no records when the next one goes over it.
// No file can take the place of a folder: one that somebody has put there moves on like a file, and
// from the last place to the first free one behind it.
// Returns false when the newest is still in its place: after any failure the loop ends, because the
// next move would overwrite a file that could not get out of the way.
bool rotate(int folder, unsigned files) {
    removeBeyond(folder, files);
    unsigned last = 1;
    for (; last < storeFilesMaximum; ++last) {
        Place const place = lookAt(folder, last);
        if (place == Place::free || (last >= files - 1 && place == Place::file)) {
            break;
        }
    }
    for (unsigned index = last; index > 0; --index) {
        StoreFileName const from = storeFileName(index - 1);
        if (renameat(folder, from.text, folder, storeFileName(index).text) != 0 && errno != ENOENT) {
            return false;
        }
    }
    return true;
}

StoreOutcome failed(xlog_result result, int crc) {
    return {result, crc};
}

/// Within its life, a write beyond the process's limit for file sizes fails and does no more: the
/// signal that the kernel sends with it would end a program that is not prepared for it.
class FileSizeSignalHeld {
public:
    FileSizeSignalHeld() noexcept {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        sigpending(&pendingBefore_);
        pthread_sigmask(SIG_BLOCK, &signal_, &maskBefore_);
    }
    ~FileSizeSignalHeld() { pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr); }
    FileSizeSignalHeld(FileSizeSignalHeld const&) = delete;
    FileSizeSignalHeld& operator=(FileSizeSignalHeld const&) = delete;

    /// To be called after each write that failed with EFBIG.
    void discard() noexcept {
        if (sigismember(&pendingBefore_, SIGXFSZ) == 0) {
            timespec const atOnce = {0, 0};
            uninterrupted([&] { return sigtimedwait(&signal_, nullptr, &atOnce); });
        }
    }

private:
    sigset_t signal_;
    sigset_t pendingBefore_;
    sigset_t maskBefore_;
};

// One write(2) for the whole line, so that a reader or a crash meets at most one torn line; a second
// one only where the kernel stopped short. What could be written in part only is taken back.
StoreOutcome writeLine(int file, off_t oldSize, char const* line, std::size_t size) {
    FileSizeSignalHeld held;
    while (size > 0) {
        ssize_t const written = uninterrupted([&] { return write(file, line, size); });
        if (written <= 0) {
            int const failure = written < 0 ? errno : ENOSPC;
            if (failure == EFBIG) {
                held.discard();
            }
            // Should this fail too, the piece stays as a torn line, which the next writer closes.
            int const ignored = ftruncate(file, oldSize);
            static_cast<void>(ignored);
            return failed(XLOG_WRITE_FAILED, failure);
        }
        line += written;
        size -= static_cast<std::size_t>(written);
    }
    return {XLOG_OK, 0};
}

// A file is on disk when its name is, and those of the folders above it, of which any may be new.
// Folders of other users and the roots of mounted filesystems were not made by the services.
int syncFolders(int newest) {
    Descriptor parent;
    for (int folder = newest;; folder = parent.get()) {
        if (uninterrupted([&] { return fsync(folder); }) != 0 && errno != EINVAL) {
            return errno;
        }
        struct stat here;
        struct stat above;
        if (fstat(folder, &here) != 0 || fstatat(folder, "..", &above, 0) != 0) {
            return errno;
        }
        if (above.st_uid != geteuid() || above.st_dev != here.st_dev || above.st_ino == here.st_ino) {
            return 0;
        }
        Descriptor next(openApart(
            [&] { return uninterrupted([&] { return openat(folder, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }); }));
        if (next.get() < 0) {
            return errno;
        }
        parent.swap(next);
    }
}

/// Opens the newest file with room for `size` bytes, rotating first if need be.
StoreOutcome openNewest(int folder, std::size_t size, Descriptor& file, off_t* fileSize) {
    StoreFileName const name = storeFileName(0);
    if (int const failure = openStoreFile(folder, name.text, file); failure != 0) {
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
        if (openStoreFile(folder, name.text, fresh) == 0) {
            file.swap(fresh);
            *fileSize = 0;
        }
    }
    // An empty file may be one that was created a moment ago. Its name is made durable before the
    // first record goes in, whoever created it: a file with records in it has its name on disk.
    if (int const failure = *fileSize == 0 ? syncFolders(folder) : 0; failure != 0) {
        return failed(XLOG_WRITE_FAILED, failure);
    }
    return {XLOG_OK, 0};
}

bool endsInNewline(int file, off_t size) {
    char last = '\n';
    return size == 0 || (pread(file, &last, 1, size - 1) == 1 && last == '\n');
}

}  // namespace

StoreOutcome appendToStore(char const* line, std::size_t size) noexcept {
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::store, MissingFolder::make, folder); failure != 0) {
        return failed(XLOG_NO_FOLDER, failure);
    }
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
    if (uninterrupted([&] { return fdatasync(file.get()); }) != 0) {
        return failed(XLOG_SYNC_FAILED, errno);
    }
    return {XLOG_OK, 0};
}

}  // namespace zelq
