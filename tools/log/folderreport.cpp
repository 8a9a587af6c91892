#include "tools/log/folderreport.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zelq {

void refuseFolder(std::string const& path, int failure) {
    std::string reason = std::strerror(failure);
    if (failure == EPERM) {
        reason = "it belongs to another user, or others may write into it";
    } else if (failure == ELOOP || failure == ENOTDIR) {
        reason = "it is a link or no folder";
    } else if (failure == ENAMETOOLONG) {
        reason = "its path is too long";
    }
    throw Failure{exitFailed, "cannot use the folder '" + path + "': " + reason};
}

bool openStore(StoreReader& store) {
    int const failure = store.open();
    if (failure == ENOENT || (failure == 0 && store.isMissing())) {
        complain("no records yet: there is no store in '" + store.files().folder() + "'");
        if (std::getenv("ZELQ_DIR") == nullptr) {
            complain("programs of other users have other stores; look as the user whose program it was");
        }
        return false;
    }
    if (failure != 0) {
        refuseFolder(store.files().folder(), failure);
    }
    return true;
}

void complainAboutNothing(StoreReader const& store, LogFilter const& filter) {
    complain((filter.isEmpty() ? "no records in '" : "no records match in '") + store.files().folder() + "'");
}

}  // namespace zelq
