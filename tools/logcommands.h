#ifndef ZELQ_LOGCOMMANDS_H
#define ZELQ_LOGCOMMANDS_H

#include <cstddef>
#include <limits>
#include <optional>
#include <string>

#include "output.h"

namespace zelq {

struct LogListOptions {
    std::size_t newest = std::numeric_limits<std::size_t>::max();  ///< how many
    std::optional<long long> sinceUs;                              ///< microseconds since 1970
    bool json = false;                                             ///< the stored lines as they are
};

struct LogShowOptions {
    bool full = false;  ///< the traces in the record of a microcode log, unfolded
    bool json = false;  ///< the stored line as it is
};

/// Prints one line for each record that matches, the newest last. Returns an ExitStatus.
int listLogs(LogListOptions const& options, Output& output);

/// Prints everything about one record: the one whose id begins with `id`, in lower-case digits, or
/// the newest one when `id` is empty. Returns an ExitStatus.
int showLog(std::string const& id, LogShowOptions const& options, Output& output);

}  // namespace zelq

#endif
