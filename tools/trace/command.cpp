#include "tools/trace/command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/statefolder.h"
#include "tools/log/report.h"
#include "tools/terminal/json.h"

namespace zelq {
namespace {

constexpr std::size_t followBatch = 1024;
constexpr std::size_t timeStart = 11;  // of the time of day, in what shownExactTime() returns

/// Prints lines, and a line with the date before the first line of each day.
class TracePrinter {
public:
    TracePrinter(bool json, Output& output) : json_(json), output_(output), writer_(output) {}

    void print(TraceEntry const& entry) {
        std::string const time = shownExactTime(entry.timeNs / 1000);
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

/// Opens the ring. False when there is none.
bool openRing(RingReader& ring) {
    Descriptor folder;
    int failure = openStateFolder(FolderUse::ring, MissingFolder::leave, folder);
    if (failure != 0 && failure != ENOENT) {
        std::string const path = ringPath();
        refuseFolder(path.substr(0, path.rfind('/')), failure);
    }
    failure = failure != 0 ? failure : ring.open();
    if (failure != 0 && failure != ENOENT) {
        throw Failure{exitDamaged, "bad trace ring: '" + ringPath() + "' " + ring.problem()};
    }
    return failure == 0;
}

// Ends only by a failure: of the ring, or of an output whose reader has gone.
ExitStatus follow(RingReader& ring, TraceFilter const& filter, TracePrinter& printer, Output& output) {
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
            openRing(ring);  // programs started from now on trace to another one
        }
        if (!output.flush() || !output.waitWithReader()) {
            break;
        }
    }
    return exitFailed;
}

}  // namespace

ExitStatus printTrace(TraceOptions const& options, Output& output) {
    RingReader ring;
    bool isOpen = openRing(ring);
    if (!isOpen) {
        complain("no trace yet: there is no ring '" + ringPath() + "'");
    }
    // With follow, wait for the first program that traces.
    while (!isOpen && options.follow && output.waitWithReader()) {
        isOpen = openRing(ring);
    }
    if (!isOpen) {
        return exitNothing;
    }
    std::size_t const newest = options.newest.value_or(options.follow ? followedNewest : ring.slotCount());
    std::vector<TraceEntry> entries(std::min(newest, ring.slotCount()));
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
    if (count == 0 && newest > 0) {
        complain("no lines match in '" + ringPath() + "'");
    }
    return count > 0 ? exitFine : exitNothing;
}

Command addTraceCommand(CLI::App& app) {
    CLI::App& trace = *app.add_subcommand("trace", "trace lines, oldest first");
    auto const options = std::make_shared<TraceOptions>();
    addNewest(trace, "only the newest N lines (10 when N is left out)", options->newest);
    trace.add_flag("-f,--follow", options->follow, "begin with the newest 10 lines, then show new ones");
    trace.add_option("--pid", options->filter.pid, "only lines of this process")->type_name("PID");
    trace.add_option("--tid", options->filter.tid, "only lines of this thread")->type_name("TID");
    trace.add_option("--handle", options->filter.handle, "only lines of this trace; 0 is the default one")
        ->type_name("NUMBER");
    addFormat(trace, "short, for people, or json, one object per line", {"short", "json"},
              [options](std::string const& name) { options->json = name == "json"; });
    return {&trace, [options](Output& output) { return printTrace(*options, output); }};
}

}  // namespace zelq
