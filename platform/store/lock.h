#ifndef ZELQ_STORE_LOCK_H
#define ZELQ_STORE_LOCK_H

#include "common/systemcalls.h"

namespace zelq {

/// Opens a file of the store for reading and appending, and makes it when it is missing. The folder
/// is the user's own, yet what lies under a name in it is looked at before it is used: a link could
/// lead anywhere, and a fifo would block for ever. Returns 0 or an errno: ENXIO when it is no
/// regular file, EPERM when somebody else owns it.
int openStoreFile(int folder, char const* name, Descriptor& file) noexcept;

/// The store's lock, which everybody holds who changes a file of the store or its name. Every
/// locking opens the lock file anew: flock() then excludes threads of one process as well as
/// processes, no mutex can be left locked in a forked child, and the kernel releases the lock of a
/// process that dies.
class StoreLock {
public:
    StoreLock() = default;
    StoreLock(StoreLock const&) = delete;
    StoreLock& operator=(StoreLock const&) = delete;
    ~StoreLock() { release(); }

    /// Waits up to 10 seconds. Returns 0 or an errno; EAGAIN when the lock stayed taken.
    int acquire(int folder) noexcept;

    void release() noexcept;

private:
    Descriptor file_;
};

}  // namespace zelq

#endif
