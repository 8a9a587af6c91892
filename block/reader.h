#ifndef ZELQCOOD_BLOCK_READER_H
#define ZELQCOOD_BLOCK_READER_H

#include <cstddef>

#include "block/layout.h"
#include "trace/message.h"
#include "zelqplatform/zostring.h"

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
    BlockReader(unsigned char* block, TraceMask& component, char level)
        : block_(block), component_(component), level_(level) {}

    /// Reads the children of a block whose header has been checked as some block's child. A type that it
    /// does not know is reported in the caller's words.
    static BlockReader inside(unsigned char* block, TraceMask& component, char level, char const* unknownType);

    /// True when the block is there and has this type, format 1 and a possible size. `expected` is
    /// how the message gives the expected type, by default in hexadecimal.
    bool accepts(unsigned short classCode, char const* expected = nullptr) {
        BlockHeader const header = block_ != nullptr ? BlockHeader::load(block_) : BlockHeader{};
        if (header.type != classCode || header.format != blockFormat || header.size < BlockHeader::bytes) {
            reportBlock(classCode, expected);
            return false;
        }
        cursor_ = BlockCursor(block_, header.size);
        return true;
    }

    /// Moves to the next usable child of one of these kinds; false at the end of the walk.
    template <std::size_t Count>
    bool next(BlockChildKind const (&kinds)[Count]) {
        BlockCursor::Step step;
        while ((step = cursor_.next(child_)) == BlockCursor::atChild) {
            BlockChildKind const* const kind = kindOf(child_, kinds, kinds + Count);
            if (kind == nullptr) {
                reportUnknown();
            } else if (isUsable(*kind)) {
                return true;
            }
        }
        if (step != BlockCursor::atEnd) {
            reportDamage(step, kindOf(child_, kinds, kinds + Count));
        }
        return false;
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

private:
    static BlockChildKind const* kindOf(BlockChild const& child, BlockChildKind const* kind,
                                        BlockChildKind const* end) {
        while (kind != end && kind->type != child.header.type) {
            ++kind;
        }
        return kind != end ? kind : nullptr;
    }

    bool isUsable(BlockChildKind const& kind) const {
        ChildFault const fault = faultOf(kind, child_);
        if (fault != ChildFault::none) {
            reportChild(kind, fault);
        }
        return kind.content != BlockChildKind::ignored &&
               (fault == ChildFault::none || fault == ChildFault::unterminated);
    }

    // Away from the walk: only damaged blocks, and those of other programs, come here.
    [[gnu::cold]] void reportBlock(unsigned short classCode, char const* expected) const;
    [[gnu::cold]] void reportUnknown() const;
    [[gnu::cold]] void reportDamage(BlockCursor::Step step, BlockChildKind const* kind) const;
    [[gnu::cold]] void reportChild(BlockChildKind const& kind, ChildFault fault) const;

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
