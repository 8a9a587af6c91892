#include "tools/log/writer.h"

#include <iterator>
#include <string>
#include <string_view>
#include <variant>

#include "common/calendar.h"
#include "store/microcodelog.h"
#include "store/severity.h"
#include "tools/commandline/timetext.h"
#include "tools/log/filter.h"
#include "tools/log/recordprinter.h"

namespace zelq {
namespace {

constexpr std::size_t codeWidth = 17;

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

/// One row of comma-separated values.
class CsvRow {
public:
    void add(std::string const& text) {
        row_ += isFirst_ ? "" : ",";
        isFirst_ = false;
        row_ += quoted(text);
    }
    std::string const& end() { return row_ += "\r\n"; }

private:
    std::string row_;
    bool isFirst_ = true;
};

// A spreadsheet is no terminal, but what reads it may print it to one.
std::string printableText(Record const& record) {
    std::string text;
    for (std::string_view const line : logText(record)) {
        text += printable(line, true) + "\n";
    }
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

/// A column that is no field of the record.
struct DerivedColumn {
    int number;
    std::string_view name;
    std::string (*value)(Record const& record);
};

constexpr DerivedColumn derivedColumns[] = {
    {4, "refcode", referenceCode},
    {16, "text", printableText},
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
    return member == &Record::severity ? shownSeverity(record) : printable(record.*member);
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

void LogWriter::print(Record const& record, std::string_view line) {
    switch (options_.format) {
    case LogFormat::brief: printSummary(record); break;
    case LogFormat::verbose:
        output_.print(isAnything_ ? "\n" : "");
        printRecord(record, options_.isFull, output_);
        break;
    case LogFormat::json:
        output_.print(line);
        output_.print("\n");
        break;
    case LogFormat::csv: printRow(record); break;
    }
    isAnything_ = true;
}

// 80 columns with a program name of 13 characters. Only the last column may grow, so that the others
// stay in line. A plain log has no reference code and shows class and type, the two of its four parts
// that it has.
void LogWriter::printSummary(Record const& record) {
    if (!isAnything_) {
        output_.print(Style::heading, "ID       TIME (UTC)           SEV   CL TY or REFCODE  EVENT        PROGRAM");
        output_.print("\n");
    }
    std::string lost;
    if (record.lostBefore > 0) {
        lost = "-- " + counted(record.lostBefore, "record") + " of pid " + std::to_string(record.pid) +
               " could not be stored before the " + (options_.isReversed ? "last" : "next") + " one --";
    }
    auto const printLost = [&](bool isHere) {
        if (isHere && !lost.empty()) {
            output_.print(Style::alarm, lost);
            output_.print("\n");
        }
    };
    printLost(!options_.isReversed);
    std::string const code = referenceCode(record);
    output_.print(padded(printable(record.id.substr(0, shownIdDigits)), shownIdDigits) + " " +
                  shownTime(record.timeUs, false) + " ");
    Severity const& severity = severityStoredAs(record.severity);
    output_.print(severity.isAlarming ? Style::alarm : Style::plain, padded(severity.shown, 5));
    std::string const kind = code.empty() ? hexDigits(record.logClass, 2) + " " + hexDigits(record.logType, 2) : code;
    output_.print(" " + padded(kind, codeWidth) + " " + padded(printable(record.event), 12) + " " +
                  printable(record.program) + "\n");
    printLost(options_.isReversed);
}

void LogWriter::printRow(Record const& record) {
    CsvRow head;
    CsvRow row;
    for (int number = 1; number <= columnCount; ++number) {
        for (DerivedColumn const& column : derivedColumns) {
            if (column.number == number) {
                head.add(std::string(column.name));
                row.add(column.value(record));
            }
        }
        for (RecordField<std::string> const& field : recordFields<std::string>) {
            if (field.column == number) {
                head.add(std::string(field.name));
                std::visit([&](auto member) { row.add(cellText(record, member)); }, field.member);
            }
        }
    }
    if (!isAnything_) {
        output_.print(head.end());
    }
    output_.print(row.end());
}

}  // namespace zelq
