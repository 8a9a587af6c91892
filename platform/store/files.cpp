#include "store/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "common/statefolder.h"
#include "store/layout.h"

namespace zelq {
namespace {

std::optional<StoreFile> identified(struct stat const& status, unsigned index) {
    if (!S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return StoreFile{Descriptor(), index, status.st_dev, status.st_ino, status.st_size};
}

std::optional<StoreFile> newestIn(int folder) {
    struct stat status = {};
    bool const isThere = fstatat(folder, storeFileName(0).text, &status, AT_SYMLINK_NOFOLLOW) == 0;
    return isThere ? identified(status, 0) : std::nullopt;
}

}  // namespace

std::string StoreFile::name() const {
    return storeFileName(index).text;
}

int StoreFiles::open() {
    char path[folderPathSize];
    if (int const failure = stateFolderPath(FolderUse::store, path); failure != 0) {
        return failure;
    }
    folder_ = path;
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::store, MissingFolder::leave, folder); failure != 0) {
        return failure;
    }
    // When a file was begun meanwhile, newer files may have come under the names of older ones.
    constexpr int triesMax = 10;
    for (int tries = 0; tries < triesMax && (tries == 0 || !isNewestOpen(folder.get())); ++tries) {
        openFiles(folder.get());
    }
    return 0;
}

// From the newest to the oldest, the way that files move: a rotation that is going on cannot carry
// a file past us, it can only bring one that is open already. That one is left out.
void StoreFiles::openFiles(int folder) {
    files_.clear();
    unreadable_.clear();
    for (unsigned index = 0; index < storeFilesMaximum; ++index) {
        std::string const name = storeFileName(index).text;
        Descriptor opened(
            openApart([&] { return openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
        if (opened.get() < 0) {
            if (errno != ENOENT) {
                unreadable_.push_back("cannot open '" + name + "': " + std::strerror(errno));
            }
            continue;
        }
        struct stat status = {};
        std::optional<StoreFile> file = fstat(opened.get(), &status) == 0 ? identified(status, index) : std::nullopt;
        if (!file.has_value()) {
            unreadable_.push_back("not a regular file: '" + name + "'");
            continue;
        }
        file->descriptor = std::move(opened);
        auto const isSame = [&file](StoreFile const& known) { return known.isSame(*file); };
        if (std::none_of(files_.begin(), files_.end(), isSame)) {
            files_.push_back(std::move(*file));
        }
    }
}

// True when the newest file is still the first of those that are open.
bool StoreFiles::isNewestOpen(int folder) const {
    std::optional<StoreFile> const newest = newestIn(folder);
    bool const isOpen = !files_.empty() && files_[0].index == 0;
    return newest.has_value() ? isOpen && files_[0].isSame(*newest) : !isOpen;
}

off_t StoreFiles::totalSize() const {
    return std::accumulate(files_.begin(), files_.end(), off_t{0},
                           [](off_t sum, StoreFile const& file) { return sum + file.size; });
}

std::optional<StoreFile> identifyNewest() {
    Descriptor folder;
    int const failure = openStateFolder(FolderUse::store, MissingFolder::leave, folder);
    return failure == 0 ? newestIn(folder.get()) : std::nullopt;
}

}  // namespace zelq
