#include "block/writer.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "block/layout.h"

BlockWriter::BlockWriter(unsigned short blockType) : block_(newBlock(blockType, blockFormat, room_)) {}

BlockWriter& BlockWriter::addLeaf(unsigned short type, void const* body, std::size_t size) {
    if (size > std::numeric_limits<unsigned int>::max()) {
        throw std::bad_alloc();  // cutting it would lose data without a word
    }
    // The block functions only read what they are given.
    auto* const bytes = static_cast<unsigned char*>(const_cast<void*>(body));
    appendLeaf(&block_, &room_, static_cast<unsigned int>(size), type, blockFormat, bytes);
    return *this;
}

BlockWriter& BlockWriter::addText(unsigned short type, char const* text) {
    return addLeaf(type, text, text == nullptr ? 0 : std::strlen(text) + 1);
}

BlockWriter& BlockWriter::addText(unsigned short type, ZoString const& text) {
    return addLeaf(type, static_cast<char const*>(text), text.length() + 1);
}

BlockWriter& BlockWriter::addOwned(unsigned char* block) {
    std::unique_ptr<unsigned char[]> const owned(block);
    appendBlock(&block_, &room_, block);
    return *this;
}

unsigned char* BlockWriter::release() {
    unsigned char* const block = block_;
    block_ = nullptr;
    return block;
}
