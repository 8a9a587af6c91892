#include "common/statefolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zelq {
namespace {

char const* environmentPath(char const* name) {
    char const* const value = secure_getenv(name);
    return value != nullptr && value[0] == '/' ? value : nullptr;
}

int makeFolders(char* path) {
    for (char* slash = path + 1;; ++slash) {
        slash = std::strchr(slash, '/');
        if (slash != nullptr) {
            *slash = '\0';
        }
        int const failure = mkdir(path, 0700) == 0 ? 0 : errno;
        if (slash == nullptr) {
            return failure == EEXIST ? 0 : failure;
        }
        *slash = '/';
        if (failure != 0 && failure != EEXIST && failure != EACCES && failure != EROFS && failure != EPERM) {
            return failure;  // of a parent that cannot be made, only the last mkdir tells the truth
        }
    }
}

// Only the user itself may own the folder and only the owner may write into it: whoever can
// write there could put links and files of his own in the way.
int checkFolder(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return errno;
    }
    bool const safe = status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return safe ? 0 : EPERM;
}

}  // namespace

int stateFolderPath(FolderUse use, char (&path)[folderPathSize]) {
    unsigned const user = geteuid();
    int length = 0;
    if (char const* const folder = secure_getenv("ZELQ_DIR"); folder != nullptr && folder[0] != '\0') {
        length = std::snprintf(path, sizeof path, "%s", folder);
    } else if (use == FolderUse::ring) {
        length = std::snprintf(path, sizeof path, "/dev/shm/zelq-%u", user);
    } else if (user == 0) {
        length = std::snprintf(path, sizeof path, "/var/log/zelq");
    } else if (char const* const home = environmentPath("HOME"); home != nullptr) {
        length = std::snprintf(path, sizeof path, "%s/.local/state/zelq", home);
    } else {
        length = std::snprintf(path, sizeof path, "/var/tmp/zelq-%u", user);
    }
    return length < 0 || static_cast<std::size_t>(length) >= sizeof path ? ENAMETOOLONG : 0;
}

int openStateFolder(FolderUse use, MissingFolder missing, Descriptor& folder) {
    char path[folderPathSize];
    if (int const failure = stateFolderPath(use, path); failure != 0) {
        return failure;
    }
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    auto const openPath = [&] { return openApart([&] { return open(path, flags); }); };
    Descriptor opened(openPath());
    if (opened.get() < 0 && errno == ENOENT && missing == MissingFolder::make) {
        if (int const failure = makeFolders(path); failure != 0) {
            return failure;
        }
        opened.reset(openPath());
    }
    if (opened.get() < 0) {
        return errno;
    }
    int const failure = checkFolder(opened.get());
    if (failure == 0) {
        folder.swap(opened);
    }
    return failure;
}

unsigned long long sizeFromEnvironment(char const* name, unsigned long long fallback, unsigned long long minimum,
                                       unsigned long long maximum) {
    char const* const text = secure_getenv(name);
    if (text == nullptr || text[0] < '0' || text[0] > '9') {
        return fallback;
    }
    char* unit = nullptr;
    unsigned long long value = std::strtoull(text, &unit, 10);
    unsigned shift = 0;
    switch (*unit) {
    case '\0': break;
    case 'K': shift = 10; break;
    case 'M': shift = 20; break;
    case 'G': shift = 30; break;
    default: return fallback;
    }
    if (shift != 0 && unit[1] != '\0') {
        return fallback;
    }
    if (value > (maximum >> shift)) {
        return maximum;
    }
    value <<= shift;
    return value < minimum ? minimum : value;
}

}  // namespace zelq
