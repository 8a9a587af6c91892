#ifndef ZELQCOOD_BLOCK_CURSOR_H
#define ZELQCOOD_BLOCK_CURSOR_H

#include <cstdint>

#include "block/packedfields.h"

/// The 8 bytes that every block starts with.
struct BlockHeader {
    static constexpr PackedField<std::uint32_t, 0> sizeField = {};
    static constexpr PackedField<std::uint16_t, 4> typeField = {};
    static constexpr PackedField<std::uint16_t, 6> formatField = {};
    static constexpr std::uint32_t bytes = 8;

    std::uint32_t size;  ///< of the whole block, header included
    std::uint16_t type;
    std::uint16_t format;

    static BlockHeader load(unsigned char const* block) {
        return {loadField(block, sizeField), loadField(block, typeField), loadField(block, formatField)};
    }
    void store(unsigned char* block) const {
        storeField(block, sizeField, size);
        storeField(block, typeField, type);
        storeField(block, formatField, format);
    }
};

/// One child that lies whole inside its parent.
struct BlockChild {
    unsigned char* start = nullptr;
    BlockHeader header = {};

    unsigned char* body() const { return start + BlockHeader::bytes; }
    std::uint32_t bodySize() const { return header.size - BlockHeader::bytes; }
};

/// Steps through the children of one block, and reads nothing beyond that block's end. All
/// walking of blocks goes through here.
///
/// Counts are compared with what remains, never pointers with an end: a hostile size cannot wrap.
/// Each step consumes at least a header, so that every walk ends.
class BlockCursor {
public:
    enum Step {
        atChild,    ///< the child is whole and the cursor stands behind it
        atEnd,      ///< the children fill the block exactly
        cutHeader,  ///< fewer bytes remain than a header has; the cursor stays
        wrongSize,  ///< the child's size is below 8 or beyond the block; the cursor stays
    };

    /// Walks nothing.
    BlockCursor() = default;

    /// Walks the block that starts at `block` and has `size` readable bytes, header included. A size
    /// below 8 is a block without children.
    BlockCursor(unsigned char* block, std::uint32_t size)
        : next_(block + BlockHeader::bytes),
          offset_(BlockHeader::bytes),
          remaining_(size < BlockHeader::bytes ? 0 : size - BlockHeader::bytes) {}

    /// Walks blocks that stand back to back in `size` readable bytes, without a block around them.
    static BlockCursor overSequence(unsigned char* start, std::uint32_t size) {
        BlockCursor cursor;
        cursor.next_ = start;
        cursor.remaining_ = size;
        return cursor;
    }

    /// Moves to the next child. With wrongSize, `child` holds the header as it was found.
    Step next(BlockChild& child) {
        if (remaining_ == 0) {
            return atEnd;
        }
        if (remaining_ < BlockHeader::bytes) {
            return cutHeader;
        }
        child.start = next_;
        child.header = BlockHeader::load(next_);
        if (child.header.size < BlockHeader::bytes || child.header.size > remaining_) {
            return wrongSize;
        }
        next_ += child.header.size;
        offset_ += child.header.size;
        remaining_ -= child.header.size;
        return atChild;
    }

    /// Offset, from the block's start, of the child that next() looks at next.
    std::uint32_t offset() const { return offset_; }

    /// Bytes of the block from offset() on.
    std::uint32_t remaining() const { return remaining_; }

private:
    unsigned char* next_ = nullptr;
    std::uint32_t offset_ = 0;
    std::uint32_t remaining_ = 0;
};

#endif
