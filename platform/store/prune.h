#ifndef ZELQ_STORE_PRUNE_H
#define ZELQ_STORE_PRUNE_H

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "store/reader.h"

// Removing old records. What goes is always the oldest part of the store: some whole files, and the
// beginning of one more, which is written anew without it. Most of that is done without the store's lock,
// so that programs do not wait for it; what they append meanwhile is added under the lock, before the new
// file takes the place of the old one. At every moment the store's files hold all records that stay: a
// crash in between leaves too many, never too few.

namespace zelq {

/// What may stay. Limits that are not set let everything stay.
struct PruneLimits {
    std::optional<long long> sinceUs;    ///< records before this moment go
    std::optional<std::uint64_t> bytes;  ///< so many bytes of the newest lines may stay
};

/// Where the part begins that stays, and what lies before it.
struct PruneCut {
    std::size_t file = 0;  ///< its place among the files, newest first; the older ones go whole
    off_t offset = 0;
    off_t bytes = 0;
    std::uint64_t records = 0;
    std::uint64_t badLines = 0;
};

/// A failed step, which both functions throw: pruning has a dozen of them, and ends with the first.
struct PruneFailure {
    std::string step;  ///< "write 'errors.pruned'"
    int reason;        ///< errno, or 0 when the step says it all
};

/// What of an open store would go. Changes nothing.
PruneCut findCut(StoreFiles const& store, PruneLimits const& limits, ReadProgress progress);

/// Removes it, after opening `store` once more: it may have been pruned since.
PruneCut prune(StoreReader& store, PruneLimits const& limits, ReadProgress progress);

}  // namespace zelq

#endif
