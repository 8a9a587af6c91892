#include "folderreport.h"

#include <cerrno>
#include <cstring>

#include "output.h"

namespace zelq {

void complainAboutFolder(std::string const& path, int failure) {
    std::string reason = std::strerror(failure);
    if (failure == EPERM) {
        reason = "it belongs to another user, or others may write into it";
    } else if (failure == ELOOP || failure == ENOTDIR) {
        reason = "it is a link or no folder";
    } else if (failure == ENAMETOOLONG) {
        reason = "its path is too long";
    }
    complain("cannot use the folder '" + path + "': " + reason);
}

}  // namespace zelq
