#ifndef ZELQ_TRACECOMMAND_H
#define ZELQ_TRACECOMMAND_H

#include <cstddef>
#include <limits>

#include "output.h"
#include "tracing/ringreader.h"

namespace zelq {

struct TraceOptions {
    TraceFilter filter;
    std::size_t newest = std::numeric_limits<std::size_t>::max();  ///< how many
    bool follow = false;
    bool json = false;
};

/// Prints the lines of the trace ring, oldest first. With `follow`, goes on until standard output
/// fails or a signal ends the program. Returns an ExitStatus.
int printTrace(TraceOptions const& options, Output& output);

}  // namespace zelq

#endif
