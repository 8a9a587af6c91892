#ifndef ZELQ_STORE_FAULTS_H
#define ZELQ_STORE_FAULTS_H

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "store/files.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Something in the store that cannot be read as a record, or not for certain.
struct Fault {
    enum Kind {
        damaged,
        torn,   ///< a line whose writer died or is still writing, which is no damage
        newer,  ///< a record with a version that is not known: it may mean other things than are shown
    };

    StoreFile const* file;  ///< null when it could not be opened or read
    off_t offset;           ///< of the line
    std::size_t line;       ///< its number; 0 when it is not known yet
    Kind kind;
    std::string reason;
};

/// Takes what a reader finds: all of it, but of newer lines the first one of each file.
class FaultSink {
public:
    virtual ~FaultSink() = default;

    void add(Fault fault);

    std::uint64_t count(Fault::Kind kind) const { return counts_[kind]; }

protected:
    virtual void keep(Fault&& fault) = 0;

private:
    std::uint64_t counts_[Fault::newer + 1] = {};
    StoreFile const* newerIn_ = nullptr;  // the last file that had one
};

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

/// "bad line 12 in errors.jsonl: ...".
std::string describe(Fault const& fault);

}  // namespace zelq

#endif
