// zelq log prune
//
// What goes is always the oldest part of the store: some whole files, and the beginning of one more,
// which is written anew without it. Most of that is done without the store's lock, so that programs
// do not wait for it; what they append meanwhile is added under the lock, before the new file takes
// the place of the old one. At every moment the store's files hold all records that stay: a crash in
// between leaves too many, never too few.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/statefolder.h"
#include "common/systemcalls.h"
#include "store/append.h"
#include "store/lock.h"
#include "store/reader.h"
#include "tools/log/commands.h"
#include "tools/log/folderreport.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

constexpr char newName[] = "errors.pruned";  // until it takes the name of the file that it replaces

/// Where the part begins that stays, and what lies before it.
struct Cut {
    std::size_t file = 0;  ///< its place among the files, newest first; the older ones go whole
    off_t offset = 0;
    off_t bytes = 0;
    std::uint64_t records = 0;
    std::uint64_t badLines = 0;
};

/// A failed step, named for the complaint.
struct PruneFailure {
    std::string step;
    int reason;  ///< errno, or 0 when the step says it all
};

[[noreturn]] void fail(std::string step, int reason = errno) {
    throw PruneFailure{std::move(step), reason};
}

/// Goes through the store from its oldest line and stops at the first record that stays. Lines that
/// are no records go with the next record that goes, being older than that.
class CutFinder {
public:
    CutFinder(StoreFiles const& store, LogPruneOptions const& options, Progress& progress)
        : files_(store.files()),
          options_(options),
          progress_(progress),
          excess_(options.bytes.has_value() ? excess(store.totalSize(), *options.bytes) : 0) {}

    Cut find() {
        bool goesOn = true;
        for (std::size_t i = files_.size(); goesOn && i-- > 0;) {
            ForwardLines lines(files_[i].descriptor.get(), 0, &progress_);
            FileLine line;
            while (goesOn && lines.position() < files_[i].size && lines.next(&line)) {
                goesOn = look(i, line);
            }
            if (goesOn && i > 0 && lines.rest(&line)) {  // in the newest file it may be in the making
                goesOn = look(i, line);
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
        bool const isRecord = line.isComplete && !line.isTooLong() && parseRecord(line.text, &record).reason.empty();
        bool const isExcess = bytes_ < excess_;
        bool const isOld = isRecord && options_.sinceUs.has_value() && record.timeUs < *options_.sinceUs;
        bytes_ += size;
        ++(isRecord ? records_ : badLines_);
        if (isExcess || isOld) {
            cut_ = {file, line.offset + size, bytes_, records_, badLines_};
        }
        return isExcess || isOld || !isRecord;
    }

    std::vector<StoreFile> const& files_;
    LogPruneOptions const& options_;
    Progress& progress_;
    off_t excess_;  // bytes beyond those that may stay
    off_t bytes_ = 0;
    std::uint64_t records_ = 0;
    std::uint64_t badLines_ = 0;
    Cut cut_;
};

/// The file that takes the place of one of which the beginning goes. It has a name that is no
/// store's file until it is whole and on disk; a lock keeps others who prune away from it.
class Replacement {
public:
    explicit Replacement(int folder) : folder_(folder) {
        for (;;) {
            if (int const failure = openStoreFile(folder, newName, file_); failure != 0) {
                fail("make '" + std::string(newName) + "'", failure);
            }
            if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
                errno == EWOULDBLOCK ? fail("prune while another 'zelq log prune' is at work", 0)
                                     : fail("lock '" + std::string(newName) + "'");
            }
            struct stat mine = {};
            struct stat named = {};
            if (fstat(file_.get(), &mine) == 0 && fstatat(folder, newName, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                mine.st_ino == named.st_ino) {
                break;  // otherwise somebody else's, who was done between our open and lock
            }
        }
        if (ftruncate(file_.get(), 0) != 0) {  // what a crash has left
            fail("write '" + std::string(newName) + "'");
        }
    }
    ~Replacement() {
        if (!isUsed_) {
            unlinkat(folder_, newName, 0);
        }
    }
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    /// Appends what stands in `from` from `begin` up to `end`, and waits until it is on disk.
    void copy(StoreFile const& from, off_t begin, off_t end) {
        std::string piece;
        for (constexpr off_t step = 1 << 20; begin < end; begin += static_cast<off_t>(piece.size())) {
            if (!readAt(from.descriptor.get(), begin, static_cast<std::size_t>(std::min(step, end - begin)), &piece)) {
                fail("read '" + from.name() + "'", EIO);
            }
            for (std::size_t done = 0; done < piece.size();) {
                ssize_t const count =
                    uninterrupted([&] { return write(file_.get(), piece.data() + done, piece.size() - done); });
                if (count < 0) {
                    fail("write '" + std::string(newName) + "'");
                }
                done += static_cast<std::size_t>(count);
            }
        }
        if (fsync(file_.get()) != 0) {
            fail("write '" + std::string(newName) + "' to disk");
        }
    }

    void takeTheNameOf(std::string const& name) {
        if (renameat(folder_, newName, folder_, name.c_str()) != 0) {
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

    void run(std::vector<StoreFile> const& files, Cut const& cut) {
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
            std::string name = storeFileName(index);
            struct stat status = {};
            if (fstatat(folder_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_ino == file.inode &&
                status.st_dev == file.device) {
                return name;
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

Cut findCut(StoreFiles const& store, LogPruneOptions const& options) {
    Progress progress("reading", store.totalSize());
    return CutFinder(store, options, progress).find();
}

Cut prune(StoreReader& store, LogPruneOptions const& options) {
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::store, MissingFolder::leave, folder); failure != 0) {
        fail("open '" + store.files().folder() + "'", failure);
    }
    Pruner pruner(folder.get());
    if (int const failure = store.open(); failure != 0) {
        fail("open '" + store.files().folder() + "'", failure);
    }
    Cut const cut = findCut(store.files(), options);
    if (cut.bytes > 0) {
        pruner.run(store.files().files(), cut);
    }
    return cut;
}

}  // namespace

ExitStatus pruneStore(LogPruneOptions const& options, Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitFine;  // what is not there need not be removed
    }
    try {
        Cut const cut = options.isDryRun ? findCut(store.files(), options) : prune(store, options);
        off_t const left = store.files().totalSize() - cut.bytes;
        output.print(cut.bytes == 0
                         ? "nothing to remove"
                         : (options.isDryRun ? "would remove " : "removed ") + counted(cut.records, "record") +
                               (cut.badLines > 0 ? " and " + counted(cut.badLines, "bad line") : "") + ", " +
                               byteCount(static_cast<std::uint64_t>(cut.bytes)));
        output.printLine("; " + byteCount(static_cast<std::uint64_t>(left)) + " stay");
    } catch (PruneFailure const& failure) {
        output.finish();
        complain("cannot " + failure.step + (failure.reason != 0 ? ": " : "") +
                 (failure.reason != 0 ? std::strerror(failure.reason) : ""));
        return exitFailed;
    }
    for (std::string const& reason : store.files().unreadable()) {
        complain(reason);
    }
    return store.files().unreadable().empty() ? exitFine : exitDamaged;
}

}  // namespace zelq
