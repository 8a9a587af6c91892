#ifndef ZELQ_STORE_READER_H
#define ZELQ_STORE_READER_H

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/files.h"
#include "store/lines.h"
#include "store/recordreader.h"

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

/// A record with the line that it was read from.
struct StoredRecord {
    Record record;
    std::string line;
};

/// Where a record stands among the files that a StoreReader has open, for reading it again.
struct RecordPlace {
    std::size_t file;  ///< its place in files()
    off_t offset;
    std::size_t size;
};

/// Reads the records of a store, all its files taken together, while programs write to it. Keeps
/// one line at a time.
class StoreReader {
public:
    enum class Order { oldestFirst, newestFirst };

    /// Gets a record, its line, and where that stands; false ends the visit.
    using Visitor = std::function<bool(Record&, std::string_view line, RecordPlace const&)>;

    /// Opens the store's files, see StoreFiles::open(). What is added to them later is left out.
    int open();

    StoreFiles const& files() const { return files_; }
    StoreFiles& files() { return files_; }

    /// True when the store has no file at all.
    bool isMissing() const { return files_.files().empty() && files_.unreadable().empty(); }

    /// Visits the records. Lines that are no records go to `faults` instead. `progress` is told
    /// of the bytes of a visit that begins with the oldest.
    void visit(Order order, FaultSink& faults, Visitor const& visitor, ReadProgress const& progress = {});

    /// Reads a record again. None when it is no longer there.
    std::optional<StoredRecord> read(RecordPlace const& place) const;

private:
    bool visitLine(std::size_t file, FileLine const& line, FaultSink& faults, Visitor const& visitor);
    bool visitForward(std::size_t file, FaultSink& faults, Visitor const& visitor, ReadProgress const& progress);
    bool visitBackward(std::size_t file, FaultSink& faults, Visitor const& visitor);

    StoreFiles files_;
};

/// One line as a record. None when it is not one, which `faults` is told of; an empty line is passed over.
std::optional<Record> readLine(StoreFile const& file, FileLine const& line, FaultSink& faults);

}  // namespace zelq

#endif
