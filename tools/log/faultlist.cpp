#include "tools/log/faultlist.h"

#include <algorithm>
#include <utility>

namespace zelq {
namespace {

constexpr std::size_t faultsMax = 20;  // what fits on a screen, and still tells how bad it is

}  // namespace

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
