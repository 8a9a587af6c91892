#ifndef ZELQ_STOREFAULTS_H
#define ZELQ_STOREFAULTS_H

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "output.h"
#include "storefiles.h"

namespace zelq {

/// Something in the store that cannot be read as a record.
struct Fault {
    StoreFile const* file;  ///< null when it could not be opened
    off_t offset;           ///< of the line
    std::size_t line;       ///< its number; 0 when it is not known yet
    bool isTorn;            ///< a line whose writer died or is still writing, which is no damage
    std::string reason;
};

/// Takes what a reader finds.
class FaultSink {
public:
    virtual ~FaultSink() = default;

    void add(Fault fault);

    std::uint64_t damaged() const { return damaged_; }
    std::uint64_t torn() const { return torn_; }

protected:
    virtual void keep(Fault&& fault) = 0;

private:
    std::uint64_t damaged_ = 0;
    std::uint64_t torn_ = 0;
};

/// Keeps the first faults, for complaints at the end of a command that shows records.
class FaultList : public FaultSink {
public:
    /// Complains, oldest first, naming file and line. The files must still be open.
    void complain();

    /// `status`, or exitDamaged when there was damage.
    int exitStatus(int status) const { return damaged() > 0 ? exitDamaged : status; }

private:
    void keep(Fault&& fault) override;

    std::vector<Fault> faults_;
};

/// "bad line 12 in errors.jsonl: ...".
std::string describe(Fault const& fault);

}  // namespace zelq

#endif
