#ifndef ZELQ_TOOLS_LOG_WRITER_H
#define ZELQ_TOOLS_LOG_WRITER_H

#include <string_view>

#include "store/recordreader.h"
#include "tools/terminal/output.h"

namespace zelq {

struct LogFormat;

/// The format that has this name, which there must be.
LogFormat const* logFormatNamed(std::string_view name);

/// Prints records one after the other, with what the format has around them.
class LogWriter {
public:
    struct Options {
        LogFormat const* format = logFormatNamed("short");
        bool isFull = false;      ///< whole traces
        bool isReversed = false;  ///< the newest record comes first
    };

    LogWriter(Options const& options, Output& output) : options_(options), output_(output) {}

    void print(Record const& record, std::string_view line);

    /// True when there was a record.
    bool isAnything() const { return isAnything_; }

    void printSummary(Record const& record, std::string_view line);
    void printVerbose(Record const& record, std::string_view line);
    void printStored(Record const& record, std::string_view line);
    void printRow(Record const& record, std::string_view line);

private:
    Options options_;
    Output& output_;
    bool isAnything_ = false;
};

/// A way to print records.
struct LogFormat {
    char const* name;
    void (LogWriter::*print)(Record const& record, std::string_view line);
};

/// All of them, for the command line too.
constexpr LogFormat logFormats[] = {
    {"short", &LogWriter::printSummary},    // a table, one line for each record
    {"verbose", &LogWriter::printVerbose},  // everything about each record
    {"json", &LogWriter::printStored},      // the stored lines as they are
    {"csv", &LogWriter::printRow},          // a row for each record, as RFC 4180 has it
};

/// Prints everything about one record: its fields, then its items. Of a microcode log first what
/// happened and where (text, backtrace, secondary codes), then the traces that led up to it, each
/// folded to its last lines unless `isFull`, then the program's own items.
void printRecord(Record const& record, bool isFull, Output& output);

}  // namespace zelq

#endif
