#ifndef ZELQ_STATEFOLDER_H
#define ZELQ_STATEFOLDER_H

#include <cstddef>

#include "common/systemcalls.h"

// The folders in which the services keep what they write. The services and the viewer agree on
// them here, in one place.
//
//   ZELQ_DIR set          that folder, for store and ring (ignored in set-user-id programs)
//   store, as root        /var/log/zelq
//   store, other users    $HOME/.local/state/zelq, without HOME /var/tmp/zelq-<uid>
//   ring                  /dev/shm/zelq-<uid>
//
// None of these functions allocates.

namespace zelq {

constexpr std::size_t folderPathSize = 512;

enum class FolderUse { store, ring };

enum class MissingFolder { leave, make };

/// Writes the folder's path into `path`. Returns 0, or ENAMETOOLONG when it does not fit.
int stateFolderPath(FolderUse use, char (&path)[folderPathSize]);

/// Opens the folder, close-on-exec. Missing folders are made with mode 0700 if so wanted. Returns 0 or
/// an errno, and then leaves `folder` alone: ENOENT when it does not exist, ELOOP or ENOTDIR when the last
/// name is a link or no folder, EPERM when somebody else owns it or may write into it.
int openStateFolder(FolderUse use, MissingFolder missing, Descriptor& folder);

/// A size from the environment: decimal digits, then optionally K, M or G. `fallback` when the
/// variable is unset or malformed; otherwise the value, moved into `minimum` to `maximum`.
unsigned long long sizeFromEnvironment(char const* name, unsigned long long fallback, unsigned long long minimum,
                                       unsigned long long maximum);

}  // namespace zelq

#endif
