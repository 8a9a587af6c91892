#include "services/store.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include "common/statefolder.h"
#include "services/storelock.h"
#include "zelqplatform/errorlog_service.h"

namespace zelq {
namespace {

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
    if (int const failure = openStoreFile(folder, name, file); failure != 0) {
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
        if (openStoreFile(folder, name, fresh) == 0) {
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
