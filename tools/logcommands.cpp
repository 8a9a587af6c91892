#include "logcommands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "folderreport.h"
#include "storereader.h"
#include "timetext.h"

namespace zelq {
namespace {

// Enough to tell some ten thousand records apart, and to be typed.
constexpr std::size_t shownIdDigits = 8;
constexpr std::size_t candidatesMax = 10;

/// A record and the line it was read from, kept beyond the visit.
struct Found {
    Record record;
    std::string line;
};

std::string hex(std::uint64_t number, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(number));
    return text;
}

std::string count(std::uint64_t number, char const* singular) {
    return std::to_string(number) + " " + singular + (number == 1 ? "" : "s");
}

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
    output.print(Style::heading, "ID        TIME (UTC)            SEVERITY  CL TY USER  EVENT         PROGRAM");
    output.print("\n");
}

// At most 80 columns with a program name of 15 characters. Only the last column may grow, so that
// the others stay in line.
void printSummary(Record const& record, Output& output) {
    bool const isError = record.severity == "error";
    if (record.lostBefore > 0) {
        output.print(Style::alarm, "-- " + count(record.lostBefore, "record") + " of pid " +
                                       std::to_string(record.pid) + " could not be stored before the next one --");
        output.print("\n");
    }
    output.print(padded(printable(record.id.substr(0, shownIdDigits)), shownIdDigits) + "  " +
                 shownTime(record.timeUs, false) + "  ");
    output.print(isError ? Style::alarm : Style::plain, isError ? "error   " : "info    ");
    output.print("  " + hex(record.logClass, 2) + " " + hex(record.logType, 2) + " " + hex(record.user, 4) + "  " +
                 padded(printable(record.event), 12) + "  " + printable(record.program) + "\n");
}

void printField(char const* name, std::string const& value, Output& output) {
    output.print(Style::faint, padded(name, 12));
    output.print(value + "\n");
}

std::string number(std::uint64_t value, int digits) {
    return "0x" + hex(value, digits) + " (" + std::to_string(value) + ")";
}

// The closing zero byte of a text and its last line end are left out; the size counts both.
void printItem(std::size_t index, RecordItem const& item, Output& output) {
    std::string const kind = item.isText ? ", text" : "";
    printField(("item " + std::to_string(index)).c_str(),
               "id " + std::to_string(item.id) + ", " + count(item.bytes.size(), "byte") + kind, output);
    std::string shown;
    if (!item.isText) {
        appendHexDump(item.bytes, 4, shown);
        output.print(shown);
        return;
    }
    std::string_view text = item.bytes;
    if (text.back() == '\0') {
        text.remove_suffix(1);
    }
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    for (std::size_t begin = 0; begin <= text.size();) {
        std::size_t const end = std::min(text.find('\n', begin), text.size());
        shown += "    " + printable(text.substr(begin, end - begin), true) + "\n";
        begin = end + 1;
    }
    output.print(shown);
}

void printRecord(Record const& record, Output& output) {
    printField("id", printable(record.id), output);
    printField("time", shownTime(record.timeUs, true), output);
    output.print(Style::faint, padded("severity", 12));
    output.print(record.severity == "error" ? Style::alarm : Style::plain, printable(record.severity));
    output.print("\n");
    printField("event", printable(record.event), output);
    printField("log id", printable(record.logId), output);
    printField("class", number(record.logClass, 2), output);
    printField("type", number(record.logType, 2), output);
    printField("user", number(record.user, 4), output);
    printField("program",
               printable(record.program) + ", process " + std::to_string(record.pid) + ", thread " +
                   std::to_string(record.tid),
               output);
    printField("host", printable(record.host), output);
    std::string flags;
    for (std::string const& flag : record.flags) {
        flags += (flags.empty() ? "" : ", ") + printable(flag);
    }
    printField("attributes", "0x" + hex(record.attributes, 4) + (flags.empty() ? "" : " " + flags), output);
    if (record.lostBefore > 0) {
        printField("lost before", count(record.lostBefore, "record") + " of this process could not be stored", output);
    }
    for (std::size_t i = 0; i < record.items.size(); ++i) {
        printItem(i + 1, record.items[i], output);
    }
}

// The candidates stand with whole ids, oldest first, ready to be copied.
int reportAmbiguous(std::string const& id, std::vector<Found> const& found, Output& output) {
    output.flush();
    complain("id '" + id + "' is ambiguous, it begins the ids of " + count(found.size(), "record") + ":");
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
    auto const print = [&](Record const& record, std::string_view line) {
        if (options.json) {
            output.print(line);
            output.print("\n");
        } else {
            if (!anything) {
                printHeading(output);
            }
            printSummary(record, output);
        }
        anything = true;
        return output.failure() == 0;
    };
    auto const matches = [&](Record const& record) {
        return !options.sinceUs.has_value() || record.timeUs >= *options.sinceUs;
    };
    if (options.newest == std::numeric_limits<std::size_t>::max()) {
        store.visit(StoreReader::Order::oldestFirst,
                    [&](Record& record, std::string_view line) { return !matches(record) || print(record, line); });
    } else if (options.newest > 0) {  // from the end: the newest ten do not cost reading all
        std::vector<Found> found;
        store.visit(StoreReader::Order::newestFirst, [&](Record& record, std::string_view line) {
            if (matches(record)) {
                record.items.clear();  // a list does not show them
                found.push_back({std::move(record), options.json ? std::string(line) : std::string()});
            }
            return found.size() < options.newest;
        });
        for (auto entry = found.rbegin(); entry != found.rend(); ++entry) {
            print(entry->record, entry->line);
        }
    }
    return finish(store, output, anything,
                  options.sinceUs.has_value() ? "no records since " + shownTime(*options.sinceUs, false)
                  : options.newest == 0       ? ""
                                              : "no records in '" + store.folder() + "'");
}

int showLog(std::string const& id, bool json, Output& output) {
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
        if (json) {
            output.print(found[0].line);
            output.print("\n");
        } else {
            printRecord(found[0].record, output);
        }
    }
    return finish(store, output, !found.empty(),
                  id.empty() ? "no records in '" + store.folder() + "'" : "no record with id '" + id + "'");
}

}  // namespace zelq
