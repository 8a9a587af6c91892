#ifndef ZELQ_TOOLS_BLOCK_LAYOUT_H
#define ZELQ_TOOLS_BLOCK_LAYOUT_H

#include <cstdint>
#include <string>

#include "block/layout.h"

namespace zelq {

/// The layouts of all blocks that have children.
TableRange<BlockLayout> blockLayouts();

/// The layout of blocks of this type inside `parent`, which is null for a block on its own. Null when
/// it has none: it is a leaf, or unknown.
BlockLayout const* blockLayout(unsigned short type, BlockLayout const* parent);

/// The number in a field of a body that has all of it.
std::int64_t fieldNumber(BlockField const& field, unsigned char const* body);

/// What the number of a field says in words; empty when it says no more than the number.
std::string fieldWords(BlockField const& field, std::int64_t number);

/// True for the block ids of items that hold text.
bool isTextItem(std::int64_t itemId);

/// True for the block ids of items that hold a snapshot of a trace.
bool isTraceItem(std::int64_t itemId);

}  // namespace zelq

#endif
