// zelq log list, zelq log show

#include <algorithm>
#include <deque>
#include <optional>
#include <vector>

#include "store/reader.h"
#include "tools/log/command.h"
#include "tools/log/report.h"

namespace zelq {
namespace {

constexpr std::size_t candidatesMax = 10;

/// Prints records again that were found from the newest to the oldest, in the order of their time.
void printOldestFirst(StoreReader const& store, std::vector<RecordPlace> const& places, LogWriter& writer,
                      Output const& output) {
    for (auto place = places.rbegin(); place != places.rend() && !output.isDone(); ++place) {
        if (std::optional<StoredRecord> const found = store.read(*place)) {
            writer.print(found->record, found->line);
        }
    }
}

Record candidateOf(Record const& record) {
    Record shown = {};
    shown.id = record.id;
    shown.timeUs = record.timeUs;
    shown.event = record.event;
    return shown;
}

// The candidates stand with whole ids, oldest first, ready to be copied.
ExitStatus reportAmbiguous(std::string const& id, std::deque<Record> const& newest, std::size_t count, Output& output) {
    output.finish();
    complain("id '" + id + "' is ambiguous, it begins the ids of " + counted(count, "record") +
             (count > newest.size() ? ", such as:" : ":"));
    for (Record const& record : newest) {
        complain("  " + record.id + "  " + shownTime(record.timeUs) + "  " + record.event);
    }
    return exitUsage;
}

}  // namespace

ExitStatus listLogs(LogOptions const& options, Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitNothing;
    }
    output.startPager();
    LogWriter writer(options.writer, output);
    FaultList faults;
    if (options.newest == std::numeric_limits<std::size_t>::max() && !options.writer.isReversed) {
        store.visit(StoreReader::Order::oldestFirst, faults,
                    [&](Record const& record, std::string_view line, RecordPlace const&) {
                        if (options.filter.matches(record)) {
                            writer.print(record, line);
                        }
                        return !output.isDone();
                    });
    } else if (options.newest > 0) {  // from the end: the newest ten do not cost reading all
        std::vector<RecordPlace> places;
        std::size_t count = 0;
        store.visit(StoreReader::Order::newestFirst, faults,
                    [&](Record const& record, std::string_view line, RecordPlace const& place) {
                        if (options.filter.matches(record)) {
                            ++count;
                            if (options.writer.isReversed) {
                                writer.print(record, line);
                            } else {
                                places.push_back(place);
                            }
                        }
                        return count < options.newest && !output.isDone();
                    });
        printOldestFirst(store, places, writer, output);
    }
    output.finish();
    faults.complain();
    if (!writer.isAnything() && options.newest > 0) {
        complainAboutNothing(store, options.filter);
    }
    return faults.exitStatus(writer.isAnything() ? exitFine : exitNothing);
}

ExitStatus showLog(LogOptions const& options, Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitNothing;
    }
    output.startPager();
    std::string const& id = options.id;
    std::optional<StoredRecord> found;  // the first one suffices, unless it turns out to be ambiguous
    std::deque<Record> candidates;
    std::size_t count = 0;
    FaultList faults;
    store.visit(StoreReader::Order::newestFirst, faults,
                [&](Record& record, std::string_view line, RecordPlace const&) {
                    if (record.id.compare(0, id.size(), id) != 0 || !options.filter.matches(record)) {
                        return true;
                    }
                    bool const isExact = id.empty() || record.id == id;
                    bool const isFound = isExact || count == 0;
                    count = isExact ? 1 : count + 1;
                    if (candidates.size() < candidatesMax) {
                        candidates.push_front(candidateOf(record));
                    }
                    if (isFound) {
                        found = {std::move(record), std::string(line)};
                    }
                    return !isExact;
                });
    if (count > 1) {
        return reportAmbiguous(id, candidates, count, output);
    }
    LogWriter writer(options.writer, output);
    if (found.has_value()) {
        writer.print(found->record, found->line);
    }
    output.finish();
    faults.complain();
    if (count == 0) {
        if (id.empty()) {
            complainAboutNothing(store, options.filter);
        } else {
            complain("no record with id '" + id + "'");
        }
    }
    return faults.exitStatus(count > 0 ? exitFine : exitNothing);
}

}  // namespace zelq
