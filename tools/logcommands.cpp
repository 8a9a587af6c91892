#include "logcommands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "folderreport.h"
#include "microcodelog.h"
#include "recordprinter.h"
#include "storereader.h"
#include "timetext.h"

namespace zelq {
namespace {

// Enough to tell some ten thousand records apart, and to be typed.
constexpr std::size_t shownIdDigits = 8;
constexpr std::size_t candidatesMax = 10;
constexpr std::size_t codeWidth = 17;

/// A record and the line it was read from, kept beyond the visit.
struct Found {
    Record record;
    std::string line;
    std::string code = {};  ///< reference code, where the items it stands in are not kept
};

/// Opens the store; when that fails or there is none, says so and returns the status for it.
ExitStatus openStore(StoreReader& store) {
    int const failure = store.open();
    if (failure == ENOENT || (failure == 0 && store.isMissing())) {
        complain("no records yet: there is no store in '" + store.folder() + "'");
        return exitNothing;
    }
    if (failure != 0) {
        complainAboutFolder(store.folder(), failure);
        return exitFailed;
    }
    return exitFine;
}

// Results first: complaints then stand at the end, next to the prompt.
int finish(StoreReader const& store, Output& output, bool anything, std::string const& whenNothing) {
    output.flush();
    std::vector<std::string> const complaints = store.complaints();
    for (std::string const& complaint : complaints) {
        complain(complaint);
    }
    if (!anything && !whenNothing.empty()) {
        complain(whenNothing);
    }
    return !complaints.empty() ? exitDamaged : anything ? exitFine : exitNothing;
}

void printHeading(Output& output) {
    output.print(Style::heading,
                 "ID        TIME (UTC)            SEVERITY  CL TY or REFCODE   USER  EVENT         PROGRAM");
    output.print("\n");
}

// At most 96 columns with a program name of 15 characters. Only the last column may grow, so that
// the others stay in line. `code` is the reference code; a plain log has none and shows class and
// type, the two of its four parts that it has.
void printSummary(Record const& record, std::string const& code, Output& output) {
    bool const isError = record.severity == "error";
    if (record.lostBefore > 0) {
        output.print(Style::alarm, "-- " + counted(record.lostBefore, "record") + " of pid " +
                                       std::to_string(record.pid) + " could not be stored before the next one --");
        output.print("\n");
    }
    output.print(padded(printable(record.id.substr(0, shownIdDigits)), shownIdDigits) + "  " +
                 shownTime(record.timeUs, false) + "  ");
    output.print(isError ? Style::alarm : Style::plain, isError ? "error   " : "info    ");
    std::string const kind = code.empty() ? hexDigits(record.logClass, 2) + " " + hexDigits(record.logType, 2) : code;
    output.print("  " + padded(kind, codeWidth) + "  " + hexDigits(record.user, 4) + "  " +
                 padded(printable(record.event), 12) + "  " + printable(record.program) + "\n");
}

// The candidates stand with whole ids, oldest first, ready to be copied.
int reportAmbiguous(std::string const& id, std::vector<Found> const& found, Output& output) {
    output.flush();
    complain("id '" + id + "' is ambiguous, it begins the ids of " + counted(found.size(), "record") + ":");
    for (std::size_t i = 0; i < found.size() && i < candidatesMax; ++i) {
        Record const& record = found[i].record;
        complain("  " + record.id + "  " + shownTime(record.timeUs, false) + "  " + record.event);
    }
    if (found.size() > candidatesMax) {
        complain("  and " + std::to_string(found.size() - candidatesMax) + " more");
    }
    return exitUsage;
}

}  // namespace

int listLogs(LogListOptions const& options, Output& output) {
    StoreReader store;
    if (ExitStatus const status = openStore(store); status != exitFine) {
        return status;
    }
    bool anything = false;
    auto const print = [&](Record const& record, std::string const& code, std::string_view line) {
        if (options.json) {
            output.print(line);
            output.print("\n");
        } else {
            if (!anything) {
                printHeading(output);
            }
            printSummary(record, code, output);
        }
        anything = true;
        return output.failure() == 0;
    };
    auto const matches = [&](Record const& record) {
        return !options.sinceUs.has_value() || record.timeUs >= *options.sinceUs;
    };
    if (options.newest == std::numeric_limits<std::size_t>::max()) {
        store.visit(StoreReader::Order::oldestFirst, [&](Record& record, std::string_view line) {
            return !matches(record) || print(record, referenceCode(record), line);
        });
    } else if (options.newest > 0) {  // from the end: the newest ten do not cost reading all
        std::vector<Found> found;
        store.visit(StoreReader::Order::newestFirst, [&](Record& record, std::string_view line) {
            if (matches(record)) {
                std::string code = referenceCode(record);
                record.items.clear();  // a list shows no more of them
                found.push_back({std::move(record), options.json ? std::string(line) : "", std::move(code)});
            }
            return found.size() < options.newest;
        });
        for (auto entry = found.rbegin(); entry != found.rend(); ++entry) {
            print(entry->record, entry->code, entry->line);
        }
    }
    return finish(store, output, anything,
                  options.sinceUs.has_value() ? "no records since " + shownTime(*options.sinceUs, false)
                  : options.newest == 0       ? ""
                                              : "no records in '" + store.folder() + "'");
}

int showLog(std::string const& id, LogShowOptions const& options, Output& output) {
    StoreReader store;
    if (ExitStatus const status = openStore(store); status != exitFine) {
        return status;
    }
    std::vector<Found> found;
    store.visit(StoreReader::Order::newestFirst, [&](Record& record, std::string_view line) {
        if (record.id.compare(0, id.size(), id) != 0) {
            return true;
        }
        bool const isExact = id.empty() || record.id == id;
        if (isExact) {
            found.clear();
        }
        found.push_back({std::move(record), std::string(line)});
        return !isExact;
    });
    if (found.size() > 1) {
        std::reverse(found.begin(), found.end());
        return reportAmbiguous(id, found, output);
    }
    if (!found.empty()) {
        if (options.json) {
            output.print(found[0].line);
            output.print("\n");
        } else {
            printRecord(found[0].record, options.full, output);
        }
    }
    return finish(store, output, !found.empty(),
                  id.empty() ? "no records in '" + store.folder() + "'" : "no record with id '" + id + "'");
}

}  // namespace zelq
