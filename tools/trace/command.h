#ifndef ZELQ_TOOLS_TRACE_COMMAND_H
#define ZELQ_TOOLS_TRACE_COMMAND_H

#include <cstddef>
#include <limits>

#include "tools/terminal/output.h"
#include "tracing/ringreader.h"

namespace zelq {

struct TraceOptions {
    TraceFilter filter;                                            ///< which lines; all when it is empty
    std::size_t newest = std::numeric_limits<std::size_t>::max();  ///< how many
    bool follow = false;  ///< go on with new lines, and wait for a ring when there is none yet
    bool json = false;    ///< one object per line, its text exact also where it is not UTF-8
};

/// Prints the lines of the trace ring, oldest first. With `follow`, goes on until standard output
/// fails or a signal ends the program. Returns an ExitStatus.
int printTrace(TraceOptions const& options, Output& output);

}  // namespace zelq

#endif
