#include "tracing/ringfile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace zelq {
namespace {

int refuse(RingFile& file, int failure, char const* problem) {
    file.problem = problem;
    return failure;
}

int checkRingFile(int descriptor, RingFile& file) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return refuse(file, errno, "cannot be examined");
    }
    if (!S_ISREG(status.st_mode)) {
        return refuse(file, EINVAL, "is not a regular file");
    }
    if (status.st_uid != geteuid()) {
        return refuse(file, EPERM, "belongs to another user");
    }
    if ((status.st_mode & 07777) != 0600) {
        return refuse(file, EPERM, "does not have mode 0600");
    }
    std::uint64_t const slotBytes = static_cast<std::uint64_t>(status.st_size) - ringHeaderSize;
    if (slotBytes < ringSizeMin || slotBytes > ringSizeMax || (slotBytes & (slotBytes - 1)) != 0) {
        return refuse(file, EINVAL, "does not have the size of a trace ring");
    }
    RingIdentity identity;
    if (pread(descriptor, &identity, sizeof identity, 0) != sizeof identity || identity.magic != ringMagic) {
        return refuse(file, EINVAL, "is not a trace ring");
    }
    if (identity.version != ringVersion || identity.slotSize != ringSlotSize) {
        return refuse(file, EINVAL, "is a trace ring of another version");
    }
    file.slotCount = slotBytes / ringSlotSize;
    return 0;
}

// umask may have taken bits of the new file's mode away.
int fillRingFile(int descriptor, std::uint64_t slotCount) {
    if (fchmod(descriptor, 0600) != 0) {
        return errno;
    }
    if (int const failure = posix_fallocate(descriptor, 0, static_cast<off_t>(ringFileSize(slotCount))); failure != 0) {
        return failure;
    }
    RingIdentity const identity{ringMagic, ringVersion, ringSlotSize};
    std::uint64_t const firstTicket = slotCount;
    if (pwrite(descriptor, &identity, sizeof identity, 0) != sizeof identity ||
        pwrite(descriptor, &firstTicket, sizeof firstTicket, offsetof(RingHeader, nextTicket)) != sizeof firstTicket) {
        return EIO;
    }
    return 0;
}

// The first way may be reserved to root, the second one needs /proc.
int giveName(int descriptor, int folder, char const* name) {
    if (linkat(descriptor, "", folder, name, AT_EMPTY_PATH) == 0) {
        return 0;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    return linkat(AT_FDCWD, path, folder, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

// Of these it is known that they write a block where it lies, also when somebody has made a copy of the file.
bool writesInPlace(int descriptor) {
    struct statfs status;
    if (fstatfs(descriptor, &status) != 0) {
        return false;
    }
    auto const type = static_cast<std::uint32_t>(status.f_type);
    return type == TMPFS_MAGIC || type == EXT4_SUPER_MAGIC;
}

}  // namespace

bool keepsItsMemory(int descriptor) {
    struct stat status;
    return writesInPlace(descriptor) && fstat(descriptor, &status) == 0 &&
           (status.st_blocks >= status.st_size / 512 || fallocate(descriptor, 0, 0, status.st_size) == 0);
}

int openRingFile(int folder, int access, RingFile& file) {
    file = RingFile{};
    // O_NONBLOCK: opening a fifo must not wait for its other end.
    Descriptor descriptor(openApart(
        [&] { return openat(folder, ringFileName, access | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    if (descriptor.get() < 0) {
        switch (int const failure = errno) {
        case ENOENT: return refuse(file, failure, "does not exist");
        case ELOOP: return refuse(file, failure, "is a symbolic link");
        case EISDIR:
        case ENXIO: return refuse(file, failure, "is not a regular file");
        default: return refuse(file, failure, "cannot be opened");
        }
    }
    int const failure = checkRingFile(descriptor.get(), file);
    if (failure == 0) {
        file.descriptor = std::move(descriptor);
    }
    return failure;
}

int createRingFile(int folder, std::uint64_t slotBytes) {
    // Growing a file beyond this limit would not only fail but end the process with SIGXFSZ.
    std::uint64_t const slotCount = slotBytes / ringSlotSize;
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < ringFileSize(slotCount)) {
        return EFBIG;
    }
    // Without a name until it is complete: whoever dies meanwhile leaves nothing behind.
    Descriptor const descriptor(openApart([&] { return openat(folder, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600); }));
    if (descriptor.get() < 0) {
        return errno;
    }
    int failure = keepsItsMemory(descriptor.get()) ? fillRingFile(descriptor.get(), slotCount) : EOPNOTSUPP;
    if (failure == 0) {
        failure = giveName(descriptor.get(), folder, ringFileName);
    }
    return failure == EEXIST ? 0 : failure;
}

}  // namespace zelq
