#include "tools/log/writer.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/calendar.h"
#include "store/microcodelog.h"
#include "store/severity.h"
#include "tools/log/filter.h"

namespace zelq {
namespace {

constexpr std::size_t codeWidth = 17;
constexpr std::size_t shownIdDigits = 8;  // enough to tell some ten thousand records apart

// RFC 4180: in quotes where the text holds what separates, and quotes doubled.
std::string quoted(std::string const& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) {
        return text;
    }
    std::string field = "\"";
    for (char const c : text) {
        field.append(c == '"' ? 2 : 1, c);
    }
    return field + '"';
}

/// One row of comma-separated values. A spreadsheet is no terminal, but what reads it may print it to one.
class CsvRow {
public:
    void add(std::string_view text) { addShown(printable(text)); }
    void addLines(std::vector<std::string_view> const& lines) {
        std::string text;
        for (std::string_view const line : lines) {
            text += printable(line, Tabs::kept) + "\n";
        }
        addShown(text.substr(0, text.find_last_not_of('\n') + 1));
    }
    std::string const& end() { return row_ += "\r\n"; }

private:
    void addShown(std::string const& text) {
        row_ += isFirst_ ? "" : ",";
        isFirst_ = false;
        row_ += quoted(text);
    }

    std::string row_;
    bool isFirst_ = true;
};

/// A column that is no field of the record.
struct DerivedColumn {
    int number;
    std::string_view name;
    void (*add)(Record const& record, CsvRow& row);
};

constexpr DerivedColumn derivedColumns[] = {
    {4, "refcode", [](Record const& record, CsvRow& row) { row.add(referenceCode(record)); }},
    {16, "text", [](Record const& record, CsvRow& row) { row.addLines(logText(record)); }},
};

constexpr int countColumns() {
    int count = static_cast<int>(std::size(derivedColumns));
    for (RecordField<std::string> const& field : recordFields<std::string>) {
        count += field.column != 0 ? 1 : 0;
    }
    return count;
}
constexpr int columnCount = countColumns();

constexpr bool hasEachColumnOnce() {
    for (int number = 1; number <= columnCount; ++number) {
        int count = 0;
        for (DerivedColumn const& column : derivedColumns) {
            count += column.number == number ? 1 : 0;
        }
        for (RecordField<std::string> const& field : recordFields<std::string>) {
            count += field.column == number ? 1 : 0;
        }
        if (count != 1) {
            return false;
        }
    }
    return true;
}
static_assert(hasEachColumnOnce());

std::string cellText(Record const& record, std::uint64_t Record::*member) {
    return std::to_string(record.*member);
}

std::string cellText(Record const& record, std::string Record::*member) {
    return member == &Record::severity ? shownSeverity(record) : record.*member;
}

std::string cellText(Record const& record, long long Record::*member) {
    return storedTime(record.*member);
}

// Lists have no column.
template <class Entry>
std::string cellText(Record const&, std::vector<Entry> Record::*) {
    return "";
}

}  // namespace

LogFormat const* logFormatNamed(std::string_view name) {
    return std::find_if(std::begin(logFormats), std::end(logFormats),
                        [name](LogFormat const& format) { return format.name == name; });
}

void LogWriter::print(Record const& record, std::string_view line) {
    (this->*options_.format->print)(record, line);
    isAnything_ = true;
}

// 80 columns with a program name of 13 characters. Only the last column may grow, so that the others
// stay in line. A plain log has no reference code and shows class and type, the two of its four parts
// that it has.
void LogWriter::printSummary(Record const& record, std::string_view) {
    if (!isAnything_) {
        output_.printLine("ID       TIME (UTC)           SEV   CL TY or REFCODE  EVENT        PROGRAM", Style::heading);
    }
    auto const printLost = [&] {
        if (record.lostBefore > 0) {
            output_.printLine("-- " + counted(record.lostBefore, "record") + " of pid " + std::to_string(record.pid) +
                                  " could not be stored before the " + (options_.isReversed ? "last" : "next") +
                                  " one --",
                              Style::alarm);
        }
    };
    if (!options_.isReversed) {
        printLost();
    }
    output_.printColumn(record.id.substr(0, shownIdDigits), shownIdDigits);
    output_.print(" " + shownTime(record.timeUs) + " ");
    Severity const& severity = severityStoredAs(record.severity);
    output_.printColumn(severity.shown, 5, severity.isAlarming ? Style::alarm : Style::plain);
    std::string const code = referenceCode(record);
    std::string const kind = code.empty() ? hexDigits(record.logClass, 2) + " " + hexDigits(record.logType, 2) : code;
    output_.printColumn(" " + kind, 1 + codeWidth);
    output_.print(" ");
    output_.printColumn(record.event, 12);
    output_.printLine(" " + record.program);
    if (options_.isReversed) {
        printLost();
    }
}

void LogWriter::printVerbose(Record const& record, std::string_view) {
    if (isAnything_) {
        output_.printLine();
    }
    printRecord(record, options_.isFull, output_);
}

void LogWriter::printStored(Record const&, std::string_view line) {
    output_.raw(line);
    output_.raw("\n");
}

void LogWriter::printRow(Record const& record, std::string_view) {
    CsvRow head;
    CsvRow row;
    for (int number = 1; number <= columnCount; ++number) {
        for (DerivedColumn const& column : derivedColumns) {
            if (column.number == number) {
                head.add(column.name);
                column.add(record, row);
            }
        }
        for (RecordField<std::string> const& field : recordFields<std::string>) {
            if (field.column == number) {
                head.add(field.name);
                std::visit([&](auto member) { row.add(cellText(record, member)); }, field.member);
            }
        }
    }
    if (!isAnything_) {
        output_.raw(head.end());
    }
    output_.raw(row.end());
}

}  // namespace zelq
