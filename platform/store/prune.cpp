#include "store/prune.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/statefolder.h"
#include "common/systemcalls.h"
#include "store/layout.h"
#include "store/lock.h"

namespace zelq {
namespace {

[[noreturn]] void fail(std::string step, int reason = errno) {
    throw PruneFailure{std::move(step), reason};
}

/// Goes through the store from its oldest line and stops at the first record that stays. Lines that
/// are no records go with the next record that goes, being older than that.
class CutFinder {
public:
    CutFinder(StoreFiles const& store, PruneLimits const& limits, ReadProgress progress)
        : files_(store.files()),
          limits_(limits),
          progress_(std::move(progress)),
          excess_(limits.bytes.has_value() ? excess(store.totalSize(), *limits.bytes) : 0) {}

    PruneCut find() {
        bool goesOn = true;
        for (std::size_t i = files_.size(); goesOn && i-- > 0;) {
            ForwardLines lines(files_[i].descriptor.get(), 0, progress_);
            bool isAnything = true;
            while (goesOn && isAnything && lines.position() < files_[i].size) {
                std::optional<FileLine> const line = lines.next();
                isAnything = line.has_value();
                goesOn = !isAnything || look(i, *line);
            }
            // In the newest file, what has no end may be in the making.
            if (std::optional<FileLine> const rest = lines.rest(); goesOn && i > 0 && rest.has_value()) {
                goesOn = look(i, *rest);
            }
            if (lines.failure() != 0) {
                fail("read '" + files_[i].name() + "'", lines.failure());
            }
        }
        return cut_;
    }

private:
    static off_t excess(off_t total, std::uint64_t kept) {
        return kept >= static_cast<std::uint64_t>(total) ? 0 : total - static_cast<off_t>(kept);
    }

    bool look(std::size_t file, FileLine const& line) {
        Record record;
        off_t const size = line.size + (line.isComplete ? 1 : 0);
        bool const isRecord = line.isComplete && !line.isTooLong() && !parseRecord(line.text, record).has_value();
        bool const isExcess = bytes_ < excess_;
        bool const isOld = isRecord && limits_.sinceUs.has_value() && record.timeUs < *limits_.sinceUs;
        bytes_ += size;
        ++(isRecord ? records_ : badLines_);
        if (isExcess || isOld) {
            cut_ = {file, line.offset + size, bytes_, records_, badLines_};
        }
        return isExcess || isOld || !isRecord;
    }

    std::vector<StoreFile> const& files_;
    PruneLimits const& limits_;
    ReadProgress progress_;
    off_t excess_;  // bytes beyond those that may stay
    off_t bytes_ = 0;
    std::uint64_t records_ = 0;
    std::uint64_t badLines_ = 0;
    PruneCut cut_;
};

/// The file that takes the place of one of which the beginning goes. It has a name that is no
/// store's file until it is whole and on disk; a lock keeps others who prune away from it.
class Replacement {
public:
    explicit Replacement(int folder) : folder_(folder) {
        for (;;) {
            if (int const failure = openStoreFile(folder, storePrunedName, file_); failure != 0) {
                fail("make '" + std::string(storePrunedName) + "'", failure);
            }
            if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
                if (errno == EWOULDBLOCK) {
                    fail("prune while another 'zelq log prune' is at work", 0);
                }
                fail("lock '" + std::string(storePrunedName) + "'");
            }
            struct stat mine = {};
            struct stat named = {};
            if (fstat(file_.get(), &mine) == 0 && fstatat(folder, storePrunedName, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                mine.st_ino == named.st_ino) {
                break;  // otherwise somebody else's, who was done between our open and lock
            }
        }
        if (ftruncate(file_.get(), 0) != 0) {  // what a crash has left
            fail("write '" + std::string(storePrunedName) + "'");
        }
    }
    ~Replacement() {
        if (!isUsed_) {
            unlinkat(folder_, storePrunedName, 0);
        }
    }
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    /// Appends what stands in `from` from `begin` up to `end`, and waits until it is on disk.
    void copy(StoreFile const& from, off_t begin, off_t end) {
        for (constexpr off_t step = 1 << 20; begin < end; begin += std::min(step, end - begin)) {
            auto const size = static_cast<std::size_t>(std::min(step, end - begin));
            std::optional<std::string> const piece = readAt(from.descriptor.get(), begin, size);
            if (!piece.has_value()) {
                fail("read '" + from.name() + "'", EIO);
            }
            for (std::size_t done = 0; done < size;) {
                ssize_t const count =
                    uninterrupted([&] { return write(file_.get(), piece->data() + done, size - done); });
                if (count < 0) {
                    fail("write '" + std::string(storePrunedName) + "'");
                }
                done += static_cast<std::size_t>(count);
            }
        }
        if (fsync(file_.get()) != 0) {
            fail("write '" + std::string(storePrunedName) + "' to disk");
        }
    }

    void takeTheNameOf(std::string const& name) {
        if (renameat(folder_, storePrunedName, folder_, name.c_str()) != 0) {
            fail("replace '" + name + "'");
        }
        isUsed_ = true;
    }

private:
    int folder_;
    Descriptor file_;
    bool isUsed_ = false;
};

/// Carries a cut out. A file is found by what it is and not by its name, which a program may have
/// changed since the store was opened by beginning a new file.
class Pruner {
public:
    /// Keeps others who prune away from here on: the store is to be opened after that.
    explicit Pruner(int folder) : folder_(folder), replacement_(folder) {}

    void run(std::vector<StoreFile> const& files, PruneCut const& cut) {
        StoreFile const& old = files[cut.file];
        off_t const copied = std::max(endOfLastLine(old.descriptor.get()), cut.offset);
        replacement_.copy(old, cut.offset, copied);
        StoreLock lock;
        if (int const failure = lock.acquire(folder_); failure != 0) {
            fail("lock the store", failure);
        }
        // Of the newest file, which programs append to, something may always come to stay.
        bool const isWhole = cut.file > 0 && cut.offset == old.size;
        for (std::size_t i = files.size(); i-- > cut.file + (isWhole ? 0 : 1);) {
            removeWhole(files[i]);
        }
        if (std::string const name = currentName(old); !isWhole && !name.empty()) {
            replacement_.copy(old, copied, fileSize(old.descriptor.get()));
            replacement_.takeTheNameOf(name);
        }
        if (fsync(folder_) != 0 && errno != EINVAL) {
            fail("write the folder to disk");
        }
    }

private:
    // Empty when it has left the store.
    std::string currentName(StoreFile const& file) const {
        for (unsigned index = file.index; index < storeFilesMaximum; ++index) {
            StoreFileName const name = storeFileName(index);
            struct stat status = {};
            if (fstatat(folder_, name.text, &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_ino == file.inode &&
                status.st_dev == file.device) {
                return name.text;
            }
        }
        return "";
    }

    void removeWhole(StoreFile const& file) const {
        std::string const name = currentName(file);
        if (!name.empty() && fileSize(file.descriptor.get()) == file.size && unlinkat(folder_, name.c_str(), 0) != 0) {
            fail("remove '" + name + "'");
        }
    }

    int folder_;
    Replacement replacement_;
};

}  // namespace

PruneCut findCut(StoreFiles const& store, PruneLimits const& limits, ReadProgress progress) {
    return CutFinder(store, limits, std::move(progress)).find();
}

PruneCut prune(StoreReader& store, PruneLimits const& limits, ReadProgress progress) {
    auto const failToOpen = [&](int failure) { fail("open '" + store.files().folder() + "'", failure); };
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::store, MissingFolder::leave, folder); failure != 0) {
        failToOpen(failure);
    }
    Pruner pruner(folder.get());
    if (int const failure = store.open(); failure != 0) {
        failToOpen(failure);
    }
    PruneCut const cut = findCut(store.files(), limits, std::move(progress));
    if (cut.bytes > 0) {
        pruner.run(store.files().files(), cut);
    }
    return cut;
}

}  // namespace zelq
