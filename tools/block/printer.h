#ifndef ZELQ_TOOLS_BLOCK_PRINTER_H
#define ZELQ_TOOLS_BLOCK_PRINTER_H

#include <string>

#include "tools/block/walk.h"
#include "tools/terminal/output.h"

namespace zelq {

struct BlockTreeOptions {
    bool offsets = false;  ///< before each line, where in the input it is from
    bool full = false;     ///< long data and traces, which are folded otherwise
};

/// Prints the blocks in `input` as a tree, one line for each block and field.
BlockFaults printBlockTree(std::string& input, BlockTreeOptions const& options, Output& output);

/// Prints the blocks in `input` as JSON, an object a line for each block that is not inside another
/// one. No byte is lost: those of an object are its header (`size`, `type` and `format`, when there is
/// a `size`), then those of `hex`, of each of the `children`, and of `rest`.
BlockFaults printBlockJson(std::string& input, Output& output);

}  // namespace zelq

#endif
