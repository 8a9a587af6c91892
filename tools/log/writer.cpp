#include "tools/log/writer.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

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

/// One row of comma-separated values. A spreadsheet is no terminal, but what reads it may print it to one.
class CsvRow {
public:
    CsvRow& add(std::string_view text) { return addShown(printable(text)); }
    CsvRow& add(std::uint64_t number) { return add(std::to_string(number)); }
    CsvRow& add(std::vector<std::string_view> const& lines) {
        std::string text;
        for (std::string_view const line : lines) {
            text += printable(line, Tabs::kept) + "\n";
        }
        return addShown(text.substr(0, text.find_last_not_of('\n') + 1));
    }
    std::string const& end() { return row_ += "\r\n"; }

private:
    CsvRow& addShown(std::string const& text) {
        row_ += isFirst_ ? "" : ",";
        isFirst_ = false;
        row_ += quoted(text);
        return *this;
    }

    std::string row_;
    bool isFirst_ = true;
};

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
    output_.print(" " + shownTime(record.timeUs, false) + " ");
    std::string const severity = shownSeverity(record);
    output_.printColumn(severity, 5, severity == "error" ? Style::alarm : Style::plain);
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
    if (!isAnything_) {
        output_.raw(
            "id,time,severity,refcode,class,type,user,event,log_id,program,pid,tid,host,attributes,lost_before,"
            "text\r\n");
    }
    CsvRow row;
    row.add(record.id).add(storedTime(record.timeUs)).add(shownSeverity(record)).add(referenceCode(record));
    row.add(record.logClass).add(record.logType).add(record.user);
    row.add(record.event).add(record.logId).add(record.program);
    row.add(record.pid).add(record.tid).add(record.host).add(record.attributes).add(record.lostBefore);
    output_.raw(row.add(logText(record)).end());
}

}  // namespace zelq
