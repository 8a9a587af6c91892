#ifndef ZELQCOOD_BLOCK_BLOCKREADER_H
#define ZELQCOOD_BLOCK_BLOCKREADER_H

#include <cstddef>

#include "block/blockcursor.h"
#include "block/classcodes.h"
#include "trace/message.h"

/// A kind of child that a class knows: how the messages name it and how its body is checked.
struct BlockChildKind {
    enum Content {
        fields,     ///< fixed fields: at least `leastBody` bytes
        bytes,      ///< any bytes
        text,       ///< characters and their zero byte; an empty body stands for an empty text
        ownReader,  ///< a whole class block: the class that reads it checks its header
        ignored,    ///< read by other means before the walk
    };

    unsigned short type;
    char const* name;
    Content content;
    std::uint32_t leastBody = 0;
};

/// The way in which every rebuilding constructor reads its block.
///
/// Checks the outer header, then walks the children and hands out those that are usable. Whatever
/// is not usable is reported by one trace line under the class's component and level and skipped;
/// a child that does not fit into the block ends the walk, since nothing behind it can be trusted.
/// Nothing is thrown for bad input and nothing beyond the block's own size is read.
///
///     BlockReader reader(block, _traceMask, 'F');
///     if (reader.accepts(logClassCode)) {
///         while (reader.next(kinds)) {
///             switch (reader.type()) { ... }
///         }
///     }
class BlockReader {
public:
    /// `block` may be null, which accepts() reports; otherwise it holds at least a header.
    BlockReader(unsigned char* block, TraceMask& component, char level);

    /// True when the block is there and has this type, format 1 and a possible size. `expected` is
    /// how the message gives the expected type, by default in hexadecimal.
    bool accepts(unsigned short classCode, char const* expected = nullptr);

    /// Moves to the next usable child of one of these kinds; false at the end of the walk.
    template <std::size_t Count>
    bool next(BlockChildKind const (&kinds)[Count]) {
        return next(kinds, Count);
    }

    /// Type of the current child.
    unsigned short type() const { return child_.header.type; }

    /// The current child as a block, for the class that reads it.
    unsigned char* block() const { return child_.start; }

    unsigned char* body() const { return child_.body(); }
    std::uint32_t bodySize() const { return child_.bodySize(); }

    /// A field of the current child, which must be of a kind whose `leastBody` covers it.
    template <class Field>
    typename Field::Type get(Field field) const {
        return loadField(child_.body(), field);
    }

    /// A text field of the current child, up to its first zero byte.
    template <std::size_t Offset, std::size_t Width>
    ZoString get(PackedText<Offset, Width>) const {
        return textAt(child_.body() + Offset, Width);
    }

    /// The current child's characters up to the first zero byte, or all of them.
    ZoString text() const { return textAt(body(), bodySize()); }

    /// A reader of the current child's own children, whose header has been checked as a child's. A
    /// type that it does not know is reported in words of its own.
    BlockReader children(char const* unknownType) const;

private:
    bool next(BlockChildKind const* kinds, std::size_t count);
    bool isUsable(BlockChildKind const& kind) const;
    template <class... Pieces>
    void report(Pieces const&... pieces) const;
    static ZoString textAt(unsigned char const* characters, std::size_t most);

    unsigned char* block_;
    TraceMask& component_;
    char level_;
    char const* unknownType_ = "Unknown data type (0x";
    BlockCursor cursor_;
    BlockChild child_;
};

#endif
