#ifndef ZELQ_TOOLS_LOG_FAULTLIST_H
#define ZELQ_TOOLS_LOG_FAULTLIST_H

#include <cstdint>
#include <string>
#include <vector>

#include "store/reader.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Keeps the first faults, for complaints at the end of a command that shows records.
class FaultList : public FaultSink {
public:
    /// Complains, oldest first, naming file and line. The files must still be open.
    void complain();

    /// `status`, or exitDamaged when there was damage.
    int exitStatus(int status) const { return count(Fault::damaged) > 0 ? exitDamaged : status; }

private:
    void keep(Fault&& fault) override;

    std::vector<Fault> faults_;
    std::uint64_t others_ = 0;
};

/// "bad line 12 in errors.jsonl: ...". Looks for the line's number where it is not known yet.
std::string describe(Fault const& fault);

}  // namespace zelq

#endif
