#ifndef ZELQ_TOOLS_BLOCK_WALK_H
#define ZELQ_TOOLS_BLOCK_WALK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/block/layout.h"

namespace zelq {

/// Blocks inside each other are walked to this depth; those of the system's classes reach 8.
constexpr int blockDepthMax = 32;

/// One block as it was met.
struct BlockNode {
    std::size_t offset;     ///< of its header in the input
    BlockHeader header;     ///< as it was found
    char const* name;       ///< null when the type means nothing here
    bool isContainer;       ///< what it holds is shown as blocks
    bool isRead;            ///< the library reads such a block in this place
    std::string_view body;  ///< as much of it as there is

    std::size_t bodyOffset() const { return offset + BlockHeader::bytes; }
};

/// Receives what a walk meets, in the order of the input. Between begin() and end() of a node comes
/// at most one of fields(), text() and bytes(), or the nodes inside it.
class BlockVisitor {
public:
    virtual ~BlockVisitor() = default;
    virtual void begin(BlockNode const& node) = 0;
    virtual void end() = 0;

    /// The body is fields, and perhaps bytes behind them. Its end may be missing.
    virtual void fields(BlockNode const& node, TableRange<BlockField> fields) = 0;

    /// The body is text up to its first zero byte.
    virtual void text(BlockNode const& node, bool isTrace) = 0;

    virtual void bytes(BlockNode const& node) = 0;

    /// Bytes that stand behind the last block but are none; of the innermost node, or of the input.
    virtual void rest(std::size_t offset, std::string_view bytes) = 0;

    /// Something is damaged; again of the innermost node, or of the input.
    virtual void fault(std::string const& what) = 0;
};

/// What was wrong altogether.
struct BlockFaults {
    std::size_t count = 0;
    std::string first;  ///< with its place
};

/// Walks all blocks in the input, which stand back to back, and what is inside them. A damaged block
/// is walked as far as it goes. `input` is only read, and has less than 4 GiB.
BlockFaults walkBlocks(std::string& input, BlockVisitor& visitor);

}  // namespace zelq

#endif
