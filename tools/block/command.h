#ifndef ZELQ_TOOLS_BLOCK_COMMAND_H
#define ZELQ_TOOLS_BLOCK_COMMAND_H

#include <string>

#include "tools/terminal/output.h"

namespace zelq {

struct BlockOptions {
    std::string file = "-";  ///< "-" is standard input
    bool hex = false;        ///< the input is a hex dump, whatever it looks like
    bool raw = false;        ///< the input is the bytes themselves
    bool offsets = false;    ///< where in the input each line is from
    bool full = false;       ///< long data and traces, unfolded
    bool json = false;       ///< an object a line
};

/// Prints what the blocks in a file hold. Returns an ExitStatus.
int showBlocks(BlockOptions const& options, Output& output);

}  // namespace zelq

#endif
