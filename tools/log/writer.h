#ifndef ZELQ_TOOLS_LOG_WRITER_H
#define ZELQ_TOOLS_LOG_WRITER_H

#include <string_view>

#include "store/recordreader.h"
#include "tools/terminal/output.h"

namespace zelq {

enum class LogFormat {
    brief,    ///< a table, one line for each record
    verbose,  ///< everything about each record
    json,     ///< the stored lines as they are
    csv,      ///< a row for each record, as RFC 4180 has it
};

/// Prints records one after the other, with what the format has around them.
class LogWriter {
public:
    struct Options {
        LogFormat format = LogFormat::brief;
        bool isFull = false;      ///< whole traces
        bool isReversed = false;  ///< the newest record comes first
    };

    LogWriter(Options const& options, Output& output) : options_(options), output_(output) {}

    void print(Record const& record, std::string_view line);

    /// True when there was a record.
    bool isAnything() const { return isAnything_; }

private:
    void printSummary(Record const& record);
    void printRow(Record const& record);

    Options options_;
    Output& output_;
    bool isAnything_ = false;
};

/// The columns of an id that a table shows: enough to tell some ten thousand records apart.
constexpr std::size_t shownIdDigits = 8;

}  // namespace zelq

#endif
