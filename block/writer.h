#ifndef ZELQCOOD_BLOCK_WRITER_H
#define ZELQCOOD_BLOCK_WRITER_H

#include <cstddef>
#include <cstdint>

#include "block/append.h"
#include "block/packedfields.h"
#include "zelqplatform/zostring.h"

/// A block under construction. It owns the block until release(), so that an allocation that
/// fails half-way leaks nothing. Every append leaves the trace lines of the public block functions,
/// which belong to the writing of every block; unlike these it keeps memory to spare for the next one.
class BlockWriter {
public:
    explicit BlockWriter(unsigned short blockType);
    ~BlockWriter() { delete[] block_; }

    BlockWriter(BlockWriter const&) = delete;
    BlockWriter& operator=(BlockWriter const&) = delete;

    template <std::size_t Size>
    BlockWriter& addFields(unsigned short type, PackedFields<Size> const& fields) {
        return addLeaf(type, fields.bytes(), Size);
    }

    /// Appends `size` bytes as a leaf.
    BlockWriter& addLeaf(unsigned short type, void const* body, std::size_t size);

    /// Appends the characters and their zero byte as a leaf; null gives an empty body.
    BlockWriter& addText(unsigned short type, char const* text);

    /// The same for a string, whose characters may be zero bytes.
    BlockWriter& addText(unsigned short type, ZoString const& text);

    /// Appends a whole block and releases it, whether or not appending succeeds.
    BlockWriter& addOwned(unsigned char* block);

    /// Hands the finished block to the caller.
    unsigned char* release();

private:
    std::uint32_t room_ = firstBlockRoom;
    unsigned char* block_;
};

#endif
