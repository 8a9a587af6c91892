#ifndef ZELQ_TOOLS_BLOCK_LAYOUT_H
#define ZELQ_TOOLS_BLOCK_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "block/childkind.h"

namespace zelq {

/// What a field's number stands for.
enum class FieldMeaning { number, attributes, yesNo, severity, address, itemId };

/// One field in a base block. A field of characters has no number.
struct BlockField {
    char const* name;
    std::size_t offset;
    std::size_t size;
    bool isSigned;
    bool isText;
    FieldMeaning meaning;
};

/// Some entries of a constant table.
template <class Entry>
struct TableRange {
    constexpr TableRange() = default;
    template <std::size_t Count>
    constexpr TableRange(Entry const (&table)[Count]) : first(table), last(table + Count) {}
    Entry const* begin() const { return first; }
    Entry const* end() const { return last; }

    Entry const* first = nullptr;
    Entry const* last = nullptr;
};

/// What a block with children holds, for those who look at it from outside. Children, offsets and
/// widths are those that the library writes and reads by.
struct BlockLayout {
    unsigned short type;
    char const* name;
    unsigned short parent;  ///< for a type that only means something inside this one; otherwise 0
    TableRange<BlockChildKind> children;
    TableRange<BlockField> fields;  ///< of the child that holds fields; no block has two of them
    unsigned short baseClass = 0;   ///< the class whose block must be inside, or 0

    /// The kind of its children of this type; null when it knows none or reads them by other means.
    BlockChildKind const* childOf(unsigned short childType) const;

    /// True when the library reads such children of this block.
    bool reads(unsigned short childType) const { return childType == baseClass || childOf(childType) != nullptr; }
};

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
