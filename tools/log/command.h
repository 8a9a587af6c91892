#ifndef ZELQ_TOOLS_LOG_COMMAND_H
#define ZELQ_TOOLS_LOG_COMMAND_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "store/prune.h"
#include "tools/commandline/options.h"
#include "tools/log/filter.h"
#include "tools/log/writer.h"

// What `zelq log` can do. Each function throws Failure where it cannot go on.

namespace zelq {

/// What to print of the store. Each command has some of these.
struct LogOptions {
    LogFilter filter;
    std::size_t newest = std::numeric_limits<std::size_t>::max();  ///< how many
    std::string id;  ///< how it begins, in lower-case digits; empty for the newest record
    LogWriter::Options writer;
};

struct LogPruneOptions {
    PruneLimits limits;
    bool isDryRun = false;
};

/// Prints the records that match, the newest last unless the order is reversed.
ExitStatus listLogs(LogOptions const& options, Output& output);

/// Prints the records that match, then those that come, without an end: across new files of the
/// store, and for a store that is not there yet. Ends when the output fails.
ExitStatus followLogs(LogOptions const& options, Output& output);

/// Prints one of the records that match: the one whose id begins so, or the newest.
ExitStatus showLog(LogOptions const& options, Output& output);

/// Counts the records that match by severity, event and reference code.
ExitStatus countLogs(LogOptions const& options, Output& output);

/// Reads every line of the store and names each that is no record.
ExitStatus verifyStore(Output& output);

/// Removes old records, beside programs that write new ones.
ExitStatus pruneStore(LogPruneOptions const& options, Output& output);

/// Adds `log` and its commands with their options to the parser.
Command addLogCommand(CLI::App& app);

}  // namespace zelq

#endif
