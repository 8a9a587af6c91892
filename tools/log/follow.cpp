// zelq log --follow

#include <algorithm>
#include <cerrno>
#include <optional>

#include "store/reader.h"
#include "tools/log/command.h"
#include "tools/log/report.h"

namespace zelq {
namespace {

/// Tells faults at once, between the records.
class FaultTeller : public FaultSink {
public:
    explicit FaultTeller(Output& output) : output_(output) {}

private:
    void keep(Fault&& fault) override {
        output_.flush();
        complain(describe(fault));
    }

    Output& output_;
};

/// Goes on where the store ended when it was opened, and from file to file.
class StoreFollower {
public:
    StoreFollower(LogFilter const& filter, LogWriter& writer, Output& output)
        : filter_(filter), writer_(writer), output_(output), faults_(output) {}

    /// Goes on behind `last`, the line of the last record that was read, in a file of which everything
    /// before `position` was read.
    void startAt(StoreFile&& file, off_t position, std::string const& last);

    /// Prints what has come since the last call.
    void goOn();

private:
    bool hasFile() const { return file_.descriptor.get() >= 0; }
    void open(StoreFile&& file, off_t position);
    void printNew();
    void changeFile();
    off_t positionIn(StoreFile const& file) const;

    LogFilter const& filter_;
    LogWriter& writer_;
    Output& output_;
    FaultTeller faults_;
    StoreFile file_;
    ForwardLines lines_{-1};
    std::string last_;  // the line of the last record
};

void StoreFollower::startAt(StoreFile&& file, off_t position, std::string const& last) {
    open(std::move(file), position);
    last_ = last;
}

void StoreFollower::open(StoreFile&& file, off_t position) {
    file_ = std::move(file);
    lines_ = ForwardLines(file_.descriptor.get(), position);
}

void StoreFollower::printNew() {
    while (!output_.isDone()) {
        std::optional<FileLine> const line = lines_.next();
        if (!line.has_value()) {
            break;
        }
        if (std::optional<Record> const record = readLine(file_, *line, faults_)) {
            last_ = line->text;
            if (filter_.matches(*record)) {
                writer_.print(*record, line->text);
            }
        }
    }
}

// First the name, then the lines: a file that has lost the name of the newest one by now is read to
// its very end.
void StoreFollower::goOn() {
    std::optional<StoreFile> const newest = identifyNewest();
    bool const hasMoved = newest.has_value() && !(hasFile() && newest->isSame(file_));
    if (hasFile()) {
        printNew();
    }
    if (hasMoved) {
        changeFile();
    }
}

// Where to go on in a file that took the place of the one that was read: behind the last record.
// 0 when it does not have that record.
off_t StoreFollower::positionIn(StoreFile const& file) const {
    BackwardLines lines(file.descriptor.get(), file.size);
    std::optional<FileLine> line = last_.empty() ? std::nullopt : lines.next();
    while (line.has_value() && line->text != last_) {
        line = lines.next();
    }
    return line.has_value() ? line->offset + line->size + 1 : 0;
}

// The file that was read has been moved to a higher number, or pruned: then another file has taken
// its place, without the oldest of its lines. Nothing is added to ours any more, and everything else
// stands in the newer files.
void StoreFollower::changeFile() {
    StoreFiles store;
    if (store.open() != 0) {
        return;
    }
    std::vector<StoreFile> files = store.take();
    std::size_t unread = 0;  // so many of the files, the newest ones
    off_t position = 0;      // and where the oldest of these goes on
    while (unread < files.size() && !(hasFile() && files[unread].isSame(file_))) {
        ++unread;
    }
    if (unread == files.size() && hasFile()) {
        // What is not there any more was older than what is.
        for (unread = 0; unread < files.size() && position == 0; ++unread) {
            position = positionIn(files[unread]);
        }
    }
    while (unread-- > 0) {
        if (std::optional<FileLine> const rest = lines_.rest(); hasFile() && position == 0 && rest.has_value()) {
            faults_.add({&file_, rest->offset, 0, Fault::torn, "its writer died"});
        }
        open(std::move(files[unread]), position);
        position = 0;
        printNew();
    }
}

/// Prints the newest records of the store as it is and lets the follower go on behind them.
void start(StoreReader& store, LogOptions const& options, LogWriter& writer, StoreFollower& follower) {
    off_t const end = endOfLastLine(store.files().files()[0].descriptor.get());
    std::vector<RecordPlace> places;
    std::string last;
    FaultList faults;
    store.visit(StoreReader::Order::newestFirst, faults,
                [&](Record const& record, std::string_view line, RecordPlace const& place) {
                    if (place.file == 0 && place.offset >= end) {
                        return true;  // came after the end was looked for
                    }
                    if (last.empty()) {
                        last = line;
                    }
                    if (places.size() < options.newest && options.filter.matches(record)) {
                        places.push_back(place);
                    }
                    return places.size() < options.newest;
                });
    for (auto place = places.rbegin(); place != places.rend(); ++place) {
        if (std::optional<StoredRecord> const found = store.read(*place)) {
            writer.print(found->record, found->line);
        }
    }
    faults.complain();
    follower.startAt(std::move(store.files().take()[0]), end, last);
}

}  // namespace

ExitStatus followLogs(LogOptions const& options, Output& output) {
    LogWriter writer(options.writer, output);
    StoreFollower follower(options.filter, writer, output);
    StoreReader store;
    if (openStore(store) && !store.files().files().empty()) {
        start(store, options, writer, follower);
    }
    while (output.flush() && output.waitWithReader()) {
        follower.goOn();
    }
    return exitFailed;
}

}  // namespace zelq
