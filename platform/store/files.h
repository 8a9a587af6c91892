#ifndef ZELQ_STORE_FILES_H
#define ZELQ_STORE_FILES_H

#include <sys/types.h>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/systemcalls.h"

namespace zelq {

/// A file of the store as it was found.
struct StoreFile {
    Descriptor descriptor;
    unsigned index = 0;  ///< in its name when it was opened; the higher, the older
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;  ///< when it was opened

    std::string name() const;
    bool isSame(StoreFile const& other) const { return device == other.device && inode == other.inode; }
};

/// The files of the store, open for reading. Takes no lock and changes nothing: looking never delays
/// a writer, and works on a read-only folder.
class StoreFiles {
public:
    /// Opens the folder and what is in it. Returns 0 or an errno of opening the folder: ENOENT when
    /// there is none, EPERM when it is not safe.
    int open();

    /// Path of the store's folder, also when it could not be opened.
    std::string const& folder() const { return folder_; }

    /// Newest first.
    std::vector<StoreFile> const& files() const { return files_; }

    /// What should be a file of the store and cannot be read, such as "not a regular file: ...".
    std::vector<std::string> const& unreadable() const { return unreadable_; }

    /// Hands the files over, to keep them open for longer than this object.
    std::vector<StoreFile> take() { return std::move(files_); }

    off_t totalSize() const;

private:
    void openFiles(int folder);
    bool isNewestOpen(int folder) const;

    std::string folder_;
    std::vector<StoreFile> files_;
    std::vector<std::string> unreadable_;
};

/// Which file the newest one is, without opening it. None when there is none.
std::optional<StoreFile> identifyNewest();

}  // namespace zelq

#endif
