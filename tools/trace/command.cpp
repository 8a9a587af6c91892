#include "tools/trace/command.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "common/statefolder.h"
#include "common/text.h"
#include "tools/commandline/timetext.h"
#include "tools/log/folderreport.h"

namespace zelq {
namespace {

constexpr std::size_t followBatch = 1024;
constexpr std::size_t timeStart = 11;  // of the time of day, in what shownTime() returns

/// Prints lines, and a line with the date before the first line of each day.
class TracePrinter {
public:
    TracePrinter(bool json, Output& output) : json_(json), output_(output) {}

    void print(TraceEntry const& entry) { json_ ? printJson(entry) : printShort(entry); }

private:
    void printShort(TraceEntry const& entry) {
        std::string const time = shownTime(entry.timeNs / 1000, true);
        if (time.compare(0, timeStart, date_) != 0) {
            date_ = time.substr(0, timeStart);
            output_.print(Style::faint, "-- " + date_ + "UTC --");
            output_.print("\n");
        }
        std::string const writer = std::to_string(entry.pid) + "/" + std::to_string(entry.tid);
        output_.print(Style::faint, time.substr(timeStart, 15) + "  " + padded(writer, 11));
        output_.print("  " + (entry.handle == 0 ? "" : "[" + std::to_string(entry.handle) + "] ") +
                      printable(entry.line(), true) + "\n");
    }

    void printJson(TraceEntry const& entry) {
        std::string time = shownTime(entry.timeNs / 1000, true);
        char nanoseconds[16];
        std::snprintf(nanoseconds, sizeof nanoseconds, "%03dZ", static_cast<int>(entry.timeNs % 1000));
        time.replace(timeStart - 1, 1, "T").replace(time.size() - 1, 1, nanoseconds);

        std::string text;
        appendReplacingInvalid(entry.line(), text);
        rapidjson::StringBuffer line;
        rapidjson::Writer<rapidjson::StringBuffer> writer(line);
        auto const field = [&writer](char const* name, std::string const& value) {
            writer.Key(name);
            writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
        };
        writer.StartObject();
        writer.Key("ticket");
        writer.Uint64(entry.ticket);
        field("time", time);
        writer.Key("pid");
        writer.Uint(entry.pid);
        writer.Key("tid");
        writer.Uint(entry.tid);
        writer.Key("handle");
        writer.Uint(entry.handle);
        field("text", text);
        if (text != entry.line()) {
            std::string exact;
            appendBase64(entry.line(), exact);
            field("text_base64", exact);
        }
        writer.EndObject();
        output_.print({line.GetString(), line.GetSize()});
        output_.print("\n");
    }

    bool json_;
    Output& output_;
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
