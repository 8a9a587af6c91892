#ifndef ZELQ_TOOLS_BLOCK_COMMAND_H
#define ZELQ_TOOLS_BLOCK_COMMAND_H

#include <string>

#include "tools/block/walk.h"
#include "tools/commandline/options.h"

namespace zelq {

struct BlockOptions {
    std::string file = "-";  ///< "-" is standard input
    bool hex = false;        ///< the input is a hex dump, whatever it looks like
    bool raw = false;        ///< the input is the bytes themselves
    bool offsets = false;    ///< where in the input each line is from
    bool full = false;       ///< long data and traces, unfolded
    bool json = false;       ///< an object a line
};

/// Prints what the blocks in a file hold. Throws Failure where it cannot go on.
ExitStatus showBlocks(BlockOptions const& options, Output& output);

/// Prints the blocks in `input` as a tree, one line for each block and field.
BlockFaults printBlockTree(std::string& input, BlockOptions const& options, Output& output);

/// Prints the blocks in `input` as JSON, an object a line for each block that is not inside another
/// one. No byte is lost: those of an object are its header (`size`, `type` and `format`, when there is
/// a `size`), then those of `hex`, of each of the `children`, and of `rest`.
BlockFaults printBlockJson(std::string& input, Output& output);

/// Adds `block` with its options to the parser.
Command addBlockCommand(CLI::App& app);

}  // namespace zelq

#endif
