#ifndef ZELQ_RINGFILE_H
#define ZELQ_RINGFILE_H

#include <cstddef>
#include <cstdint>

#include "common/systemcalls.h"
#include "tracing/ringlayout.h"

// The ring's file: finding out whether a file is one, and making one. Nothing here allocates.

namespace zelq {

struct RingFile {
    Descriptor descriptor;  // close-on-exec
    std::uint64_t slotCount = 0;
    char const* problem = "";
};

/// How many bytes a ring's file has.
constexpr std::size_t ringFileSize(std::uint64_t slotCount) {
    return ringHeaderSize + static_cast<std::size_t>(slotCount) * ringSlotSize;
}

/// The power of two whose value is `slotCount`; slotCount must be a power of two.
constexpr unsigned slotCountLog2(std::uint64_t slotCount) {
    return static_cast<unsigned>(__builtin_ctzll(slotCount));
}

/// Whether all memory of a file is there and stays. Elsewhere a write to its mapping ends the writer with SIGBUS
/// once the file system is full: where a file has holes, or where it is copied on write.
bool keepsItsMemory(int descriptor);

/// Opens the ring in `folder` with O_RDONLY or O_RDWR. Accepts only a regular file of the effective
/// user, mode 0600, of a size a ring can have and with the identity of this version. Returns 0, or
/// an errno and what is wrong in `file.problem`; then no descriptor is left open.
int openRingFile(int folder, int access, RingFile& file);

/// Makes a ring with `slotBytes` (a power of two) of slots in `folder`, with all its memory, so
/// that writing to it cannot fail later. It appears under its name complete or not at all. Returns
/// 0 also when a file of that name is there already, whatever it is: it stays as it is.
int createRingFile(int folder, std::uint64_t slotBytes);

}  // namespace zelq

#endif
