#include "store/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "common/statefolder.h"
#include "store/append.h"

namespace zelq {
namespace {

bool identify(struct stat const& status, StoreFile* file) {
    file->device = status.st_dev;
    file->inode = status.st_ino;
    file->size = status.st_size;
    return S_ISREG(status.st_mode);
}

bool identifyNewest(int folder, StoreFile* newest) {
    struct stat status = {};
    return fstatat(folder, storeFileName(0).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && identify(status, newest);
}

}  // namespace

std::string storeFileName(unsigned index) {
    char name[storeNameSize];
    storeFileName(index, name);
    return name;
}

std::string StoreFile::name() const {
    return storeFileName(index);
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
        StoreFile file;
        file.index = index;
        std::string const name = file.name();
        file.descriptor.reset(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file.descriptor.get() < 0) {
            if (errno != ENOENT) {
                unreadable_.push_back("cannot open '" + name + "': " + std::strerror(errno));
            }
            continue;
        }
        struct stat status = {};
        if (fstat(file.descriptor.get(), &status) != 0 || !identify(status, &file)) {
            unreadable_.push_back("not a regular file: '" + name + "'");
            continue;
        }
        auto const isSame = [&file](StoreFile const& known) { return known.isSame(file); };
        if (std::none_of(files_.begin(), files_.end(), isSame)) {
            files_.push_back(std::move(file));
        }
    }
}

// True when the newest file is still the first of those that are open.
bool StoreFiles::isNewestOpen(int folder) const {
    StoreFile newest;
    bool const isOpen = !files_.empty() && files_[0].index == 0;
    return identifyNewest(folder, &newest) ? isOpen && files_[0].isSame(newest) : !isOpen;
}

off_t StoreFiles::totalSize() const {
    return std::accumulate(files_.begin(), files_.end(), off_t{0},
                           [](off_t sum, StoreFile const& file) { return sum + file.size; });
}

bool identifyNewest(StoreFile* newest) {
    Descriptor folder;
    return openStateFolder(FolderUse::store, MissingFolder::leave, folder) == 0 && identifyNewest(folder.get(), newest);
}

}  // namespace zelq
