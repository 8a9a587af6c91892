#ifndef ZELQ_TOOLS_LOG_COMMANDS_H
#define ZELQ_TOOLS_LOG_COMMANDS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "store/prune.h"
#include "tools/log/filter.h"
#include "tools/log/writer.h"
#include "tools/terminal/output.h"

// What `zelq log` can do. Each function returns an ExitStatus.

namespace zelq {

struct LogListOptions {
    LogFilter filter;
    std::size_t newest = std::numeric_limits<std::size_t>::max();  ///< how many
    LogWriter::Options writer;
};

struct LogShowOptions {
    LogFilter filter;
    std::string id;  ///< how it begins, in lower-case digits; empty for the newest record
    LogWriter::Options writer;
};

struct LogStatsOptions {
    LogFilter filter;
    bool json = false;
};

struct LogPruneOptions {
    PruneLimits limits;
    bool isDryRun = false;
};

/// Prints the records that match, the newest last unless the order is reversed.
int listLogs(LogListOptions const& options, Output& output);

/// Prints the records that match, then those that come, without an end: across new files of the
/// store, and for a store that is not there yet. Ends when the output fails.
int followLogs(LogListOptions const& options, Output& output);

/// Prints one of the records that match: the one whose id begins so, or the newest.
int showLog(LogShowOptions const& options, Output& output);

/// Counts the records that match by severity, event and reference code.
int countLogs(LogStatsOptions const& options, Output& output);

/// Reads every line of the store and names each that is no record.
int verifyStore(Output& output);

/// Removes old records, beside programs that write new ones.
int pruneStore(LogPruneOptions const& options, Output& output);

}  // namespace zelq

#endif
