#ifndef ZELQ_TOOLS_LOG_REPORT_H
#define ZELQ_TOOLS_LOG_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "store/reader.h"
#include "tools/log/filter.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Throws the Failure for a state folder `path` that could not be opened; `failure` is what
/// openStateFolder() returned.
[[noreturn]] void refuseFolder(std::string const& path, int failure);

/// Opens the store. When there is none, says so and returns false.
bool openStore(StoreReader& store);

/// Complains that no record of the store matches.
void complainAboutNothing(StoreReader const& store, LogFilter const& filter);

/// Keeps the first faults, for complaints at the end of a command that shows records.
class FaultList : public FaultSink {
public:
    /// Complains, oldest first, naming file and line. The files must still be open.
    void complain();

    /// `status`, or exitDamaged when there was damage.
    ExitStatus exitStatus(ExitStatus status) const { return count(Fault::damaged) > 0 ? exitDamaged : status; }

private:
    void keep(Fault&& fault) override;

    std::vector<Fault> faults_;
    std::uint64_t others_ = 0;
};

/// "bad line 12 in errors.jsonl: ...". Looks for the line's number where it is not known yet.
std::string describe(Fault const& fault);

}  // namespace zelq

#endif
