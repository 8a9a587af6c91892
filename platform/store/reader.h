#ifndef ZELQ_STORE_READER_H
#define ZELQ_STORE_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "store/faults.h"
#include "store/files.h"
#include "store/lines.h"
#include "store/recordreader.h"

namespace zelq {

class Progress;

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

    /// Visits the records. Lines that are no records go to `faults` instead. `progress` counts the
    /// bytes of a visit that begins with the oldest.
    void visit(Order order, FaultSink& faults, Visitor const& visitor, Progress* progress = nullptr);

    /// Reads a record again. False when it is no longer there.
    bool read(RecordPlace const& place, Record* record, std::string* line) const;

private:
    bool visitLine(std::size_t file, FileLine const& line, FaultSink& faults, Visitor const& visitor);
    bool visitForward(std::size_t file, FaultSink& faults, Visitor const& visitor, Progress* progress);
    bool visitBackward(std::size_t file, FaultSink& faults, Visitor const& visitor);

    StoreFiles files_;
};

/// Reads one line as a record. When it is none, tells `faults` and returns false; an empty line is
/// passed over.
bool readLine(StoreFile const& file, FileLine const& line, FaultSink& faults, Record* record);

}  // namespace zelq

#endif
