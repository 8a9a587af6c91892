#include "tools/log/writer.h"

#include <string>

#include "tools/commandline/timetext.h"
#include "tools/log/filter.h"
#include "tools/log/microcodelog.h"
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
    CsvRow& add(std::string const& text) {
        row_ += isFirst_ ? "" : ",";
        isFirst_ = false;
        row_ += quoted(text);
        return *this;
    }
    CsvRow& add(std::uint64_t number) { return add(std::to_string(number)); }
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
    std::string const severity = shownSeverity(record);
    output_.print(severity == "error" ? Style::alarm : Style::plain, padded(severity, 5));
    std::string const kind = code.empty() ? hexDigits(record.logClass, 2) + " " + hexDigits(record.logType, 2) : code;
    output_.print(" " + padded(kind, codeWidth) + " " + padded(printable(record.event), 12) + " " +
                  printable(record.program) + "\n");
    printLost(options_.isReversed);
}

void LogWriter::printRow(Record const& record) {
    if (!isAnything_) {
        output_.print(
            "id,time,severity,refcode,class,type,user,event,log_id,program,pid,tid,host,attributes,lost_before,"
            "text\r\n");
    }
    CsvRow row;
    row.add(printable(record.id)).add(storedTime(record.timeUs)).add(shownSeverity(record)).add(referenceCode(record));
    row.add(record.logClass).add(record.logType).add(record.user);
    row.add(printable(record.event)).add(printable(record.logId)).add(printable(record.program));
    row.add(record.pid).add(record.tid).add(printable(record.host)).add(record.attributes).add(record.lostBefore);
    output_.print(row.add(printableText(record)).end());
}

}  // namespace zelq
