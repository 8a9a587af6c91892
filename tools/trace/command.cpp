#include "tools/trace/command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "common/statefolder.h"
#include "tools/commandline/timetext.h"
#include "tools/log/folderreport.h"
#include "tools/terminal/json.h"

namespace zelq {
namespace {

constexpr std::size_t followBatch = 1024;
constexpr std::size_t timeStart = 11;  // of the time of day, in what shownTime() returns

/// Prints lines, and a line with the date before the first line of each day.
class TracePrinter {
public:
    TracePrinter(bool json, Output& output) : json_(json), output_(output), writer_(output) {}

    void print(TraceEntry const& entry) {
        std::string const time = shownTime(entry.timeNs / 1000, true);
        if (json_) {
            printJson(entry, time);
        } else {
            printShort(entry, time);
        }
    }

private:
    void printShort(TraceEntry const& entry, std::string const& time) {
        if (time.compare(0, timeStart, date_) != 0) {
            date_ = time.substr(0, timeStart);
            output_.printLine("-- " + date_ + "UTC --", Style::faint);
        }
        std::string const writer = std::to_string(entry.pid) + "/" + std::to_string(entry.tid);
        output_.print(time.substr(timeStart, 15) + "  " + padded(writer, 11), Style::faint);
        output_.print("  " + (entry.handle == 0 ? "" : "[" + std::to_string(entry.handle) + "] "));
        output_.printTextLine(entry.line());
    }

    void printJson(TraceEntry const& entry, std::string time) {
        char nanoseconds[16];
        std::snprintf(nanoseconds, sizeof nanoseconds, "%03dZ", static_cast<int>(entry.timeNs % 1000));
        time.replace(timeStart - 1, 1, "T").replace(time.size() - 1, 1, nanoseconds);
        writer_.StartObject();
        writer_.field("ticket", entry.ticket);
        writer_.field("time", time);
        writer_.field("pid", entry.pid);
        writer_.field("tid", entry.tid);
        writer_.field("handle", entry.handle);
        writer_.exactField("text", entry.line());
        writer_.EndObject();
        writer_.endLine();
    }

    bool json_;
    Output& output_;
    JsonLines writer_;
    std::string date_;
};

std::string ringPath() {
    char path[folderPathSize];
    return stateFolderPath(FolderUse::ring, path) == 0 ? path + std::string("/") + ringFileName : "";
}

/// Opens the ring. Complains about everything but a missing one, for which it returns exitNothing.
ExitStatus openRing(RingReader& ring) {
    Descriptor folder;
    if (int const failure = openStateFolder(FolderUse::ring, MissingFolder::leave, folder); failure != 0) {
        if (failure == ENOENT) {
            return exitNothing;
        }
        std::string const path = ringPath();
        complainAboutFolder(path.substr(0, path.rfind('/')), failure);
        return exitFailed;
    }
    int const failure = ring.open();
    if (failure != 0 && failure != ENOENT) {
        complain("bad trace ring: '" + ringPath() + "' " + ring.problem());
        return exitDamaged;
    }
    return failure == 0 ? exitFine : exitNothing;
}

// Ends only by a failure: of the ring, or of an output whose reader has gone.
int follow(RingReader& ring, TraceFilter const& filter, TracePrinter& printer, Output& output) {
    std::vector<TraceEntry> entries(followBatch);
    while (output.flush()) {
        TraceProgress const progress = ring.follow(filter, entries.data(), entries.size());
        for (std::size_t i = 0; i < progress.count; ++i) {
            printer.print(entries[i]);
        }
        if (progress.overrun > 0) {
            output.flush();
            complain(std::to_string(progress.overrun) + " lines overrun before they could be read");
        }
        if (progress.more) {
            continue;
        }
        if (progress.count == 0 && ring.isRemoved()) {
            // Programs started from now on trace to another ring.
            if (ExitStatus const status = openRing(ring); status != exitFine && status != exitNothing) {
                return status;
            }
        }
        if (!output.flush() || !output.waitWithReader()) {
            break;
        }
    }
    return exitFailed;
}

}  // namespace

int printTrace(TraceOptions const& options, Output& output) {
    RingReader ring;
    ExitStatus status = openRing(ring);
    if (status == exitNothing) {
        complain("no trace yet: there is no ring '" + ringPath() + "'");
    }
    // With follow, wait for the first program that traces.
    while (status == exitNothing && options.follow && output.waitWithReader()) {
        status = openRing(ring);
    }
    if (status != exitFine) {
        return status;
    }
    std::vector<TraceEntry> entries(std::min(options.newest, ring.slotCount()));
    std::size_t const count = ring.newest(options.filter, entries.data(), entries.size());
    TracePrinter printer(options.json, output);
    if (!options.follow) {
        output.startPager();
    }
    for (std::size_t i = 0; i < count; ++i) {
        printer.print(entries[i]);
    }
    if (options.follow) {
        return follow(ring, options.filter, printer, output);
    }
    if (count == 0 && options.newest > 0) {
        complain("no lines match in '" + ringPath() + "'");
    }
    return count > 0 ? exitFine : exitNothing;
}

}  // namespace zelq
