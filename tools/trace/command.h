#ifndef ZELQ_TOOLS_TRACE_COMMAND_H
#define ZELQ_TOOLS_TRACE_COMMAND_H

#include <cstddef>
#include <optional>

#include "tools/commandline/options.h"
#include "tracing/ringreader.h"

namespace zelq {

struct TraceOptions {
    TraceFilter filter;                 ///< which lines; all when it is empty
    std::optional<std::size_t> newest;  ///< how many; otherwise all, or where following begins
    bool follow = false;                ///< go on with new lines, and wait for a ring when there is none yet
    bool json = false;                  ///< one object per line, its text exact also where it is not UTF-8
};

/// Prints the lines of the trace ring, oldest first. With `follow`, goes on until standard output
/// fails or a signal ends the program. Throws Failure where it cannot go on.
ExitStatus printTrace(TraceOptions const& options, Output& output);

/// Adds `trace` with its options to the parser.
Command addTraceCommand(CLI::App& app);

}  // namespace zelq

#endif
