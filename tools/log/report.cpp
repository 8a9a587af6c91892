#include "tools/log/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zelq {
namespace {

constexpr std::size_t faultsMax = 20;  // what fits on a screen, and still tells how bad it is

}  // namespace

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

void FaultList::keep(Fault&& fault) {
    if (faults_.size() < faultsMax) {
        faults_.push_back(std::move(fault));
    } else {
        ++others_;
    }
}

void FaultList::complain() {
    std::stable_sort(faults_.begin(), faults_.end(), [](Fault const& left, Fault const& right) {
        unsigned const leftIndex = left.file == nullptr ? 0 : left.file->index + 1;
        unsigned const rightIndex = right.file == nullptr ? 0 : right.file->index + 1;
        return leftIndex != rightIndex ? leftIndex > rightIndex : left.offset < right.offset;
    });
    for (Fault const& fault : faults_) {
        zelq::complain(describe(fault));
    }
    if (others_ > 0) {
        zelq::complain("and " + counted(others_, "more line") + "; 'zelq log verify' names them");
    }
}

std::string describe(Fault const& fault) {
    if (fault.file == nullptr) {
        return fault.reason;
    }
    constexpr char const* kinds[] = {"bad", "torn", "newer"};
    std::size_t const line = fault.line != 0 ? fault.line : lineNumberAt(fault.file->descriptor.get(), fault.offset);
    return std::string(kinds[fault.kind]) + " line " + std::to_string(line) + " in " + fault.file->name() + ": " +
           fault.reason;
}

}  // namespace zelq
