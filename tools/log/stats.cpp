// zelq log stats

#include <algorithm>
#include <map>
#include <vector>

#include "common/calendar.h"
#include "store/microcodelog.h"
#include "store/reader.h"
#include "tools/log/command.h"
#include "tools/log/report.h"
#include "tools/terminal/json.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

/// Counts by one property. A hostile store could have no end of different values, and long ones:
/// neither costs more than a bounded amount of memory.
class Tally {
public:
    struct Row {
        std::string name;
        std::uint64_t count;
    };

    void add(std::string_view name) {
        std::string key(name.substr(0, nameMax));
        auto const found = counts_.find(key);
        if (found != counts_.end()) {
            ++found->second;
        } else if (counts_.size() < namesMax) {
            counts_.emplace(std::move(key), 1);
        } else {
            ++others_;
        }
    }

    /// The most frequent first.
    std::vector<Row> rows() const {
        std::vector<Row> rows;
        for (auto const& [name, count] : counts_) {
            rows.push_back({name, count});
        }
        std::stable_sort(rows.begin(), rows.end(),
                         [](Row const& left, Row const& right) { return left.count > right.count; });
        return rows;
    }

    /// Records whose value has no row of its own.
    std::uint64_t others() const { return others_; }

private:
    static constexpr std::size_t nameMax = 64;
    static constexpr std::size_t namesMax = 10000;

    std::map<std::string, std::uint64_t> counts_;
    std::uint64_t others_ = 0;
};

struct Statistics {
    std::uint64_t records = 0;
    std::uint64_t lost = 0;
    long long firstUs = 0;  // the earliest and latest time, which need not be those of the ends
    long long lastUs = 0;
    Tally severities;
    Tally events;
    Tally codes;

    void add(Record const& record) {
        firstUs = records == 0 ? record.timeUs : std::min(firstUs, record.timeUs);
        lastUs = records == 0 ? record.timeUs : std::max(lastUs, record.timeUs);
        ++records;
        lost += record.lostBefore;
        severities.add(shownSeverity(record));
        events.add(record.event);
        codes.add(referenceCode(record));
    }
};

// The longest bar of a table takes what the columns before it leave of the terminal.
void printTable(char const* heading, char const* nameless, Tally const& tally, Output& output) {
    constexpr std::size_t nameWidth = 17;
    constexpr std::size_t countWidth = 9;
    std::vector<Tally::Row> rows = tally.rows();
    if (tally.others() > 0) {
        rows.push_back({"(others)", tally.others()});
    }
    std::uint64_t most = 1;
    for (Tally::Row const& row : rows) {
        most = std::max(most, row.count);
    }
    std::size_t const width = terminalWidth();
    std::size_t const barWidth = width > 50 ? width - nameWidth - countWidth - 3 : 20;
    output.printLine();
    output.printLine(padded(heading, nameWidth) + "    RECORDS", Style::heading);
    for (Tally::Row const& row : rows) {
        std::string const count = std::to_string(row.count);
        double const share = static_cast<double>(row.count) / static_cast<double>(most);
        auto const bar = static_cast<std::size_t>(share * static_cast<double>(barWidth));
        output.printColumn(row.name.empty() ? nameless : row.name, nameWidth);
        output.print("  " + std::string(countWidth - std::min(count.size(), countWidth), ' ') + count + " ");
        output.printLine(std::string(std::max<std::size_t>(bar, 1), '#'));
    }
}

void printTables(Statistics const& statistics, Output& output) {
    output.printLine(counted(statistics.records, "record") + ", from " + shownTime(statistics.firstUs) + " to " +
                     shownTime(statistics.lastUs));
    if (statistics.lost > 0) {
        output.printLine(counted(statistics.lost, "record") + " more could not be stored", Style::alarm);
    }
    printTable("SEVERITY", "", statistics.severities, output);
    printTable("EVENT", "(none)", statistics.events, output);
    printTable("REFERENCE CODE", "(none)", statistics.codes, output);
}

void writeTally(JsonLines& writer, std::string const& name, char const* key, Tally const& tally) {
    writer.key(name);
    writer.StartArray();
    for (Tally::Row const& row : tally.rows()) {
        writer.StartObject();
        writer.exactField(key, row.name);
        writer.field("records", row.count);
        writer.EndObject();
    }
    writer.EndArray();
    if (tally.others() > 0) {
        writer.field("other_" + name, tally.others());
    }
}

void printJson(Statistics const& statistics, Output& output) {
    JsonLines writer(output);
    writer.StartObject();
    writer.field("records", statistics.records);
    writer.field("first", storedTime(statistics.firstUs));
    writer.field("last", storedTime(statistics.lastUs));
    writer.field("lost", statistics.lost);
    writeTally(writer, "severities", "severity", statistics.severities);
    writeTally(writer, "events", "event", statistics.events);
    writeTally(writer, "refcodes", "refcode", statistics.codes);
    writer.EndObject();
    writer.endLine();
}

}  // namespace

ExitStatus countLogs(LogOptions const& options, Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitNothing;
    }
    Statistics statistics;
    FaultList faults;
    Progress progress("reading", store.files().totalSize());
    store.visit(
        StoreReader::Order::oldestFirst, faults,
        [&](Record const& record, std::string_view, RecordPlace const&) {
            if (options.filter.matches(record)) {
                statistics.add(record);
            }
            return true;
        },
        [&](off_t bytes) { progress.advance(bytes); });
    progress.hide();
    if (statistics.records > 0) {
        output.startPager();
        if (options.writer.format == logFormatNamed("json")) {
            printJson(statistics, output);
        } else {
            printTables(statistics, output);
        }
    }
    output.finish();
    faults.complain();
    if (statistics.records == 0) {
        complainAboutNothing(store, options.filter);
    }
    return faults.exitStatus(statistics.records > 0 ? exitFine : exitNothing);
}

}  // namespace zelq
