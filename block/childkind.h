#ifndef ZELQCOOD_BLOCK_CHILDKIND_H
#define ZELQCOOD_BLOCK_CHILDKIND_H

#include <cstddef>
#include <cstring>

#include "block/blockcursor.h"
#include "block/classcodes.h"

/// A kind of child that a class knows: how the messages name it and how its body is checked.
struct BlockChildKind {
    enum Content {
        fields,     ///< fixed fields: at least `leastBody` bytes
        bytes,      ///< any bytes
        text,       ///< characters and their zero byte; an empty body stands for an empty text
        ownReader,  ///< a whole class block: the class that reads it checks its header
        ignored,    ///< a whole class block, read by other means before the walk
    };

    unsigned short type;
    char const* name;
    Content content;
    std::uint32_t leastBody = 0;
};

/// What is wrong with a child that lies whole inside its parent.
enum class ChildFault {
    none,
    wrongFormat,   ///< its body cannot be read
    tooShort,      ///< its fields are not all there
    unterminated,  ///< a text without its zero byte, usable all the same
};

inline ChildFault faultOf(BlockChildKind const& kind, BlockChild const& child) {
    if (kind.content == BlockChildKind::ownReader || kind.content == BlockChildKind::ignored) {
        return ChildFault::none;
    }
    if (child.header.format != blockFormat) {
        return ChildFault::wrongFormat;
    }
    if (child.bodySize() < kind.leastBody) {
        return ChildFault::tooShort;
    }
    // Most texts end with their child, which saves the search.
    bool const isUnterminated = kind.content == BlockChildKind::text && child.bodySize() != 0 &&
                                child.body()[child.bodySize() - 1] != 0 &&
                                std::memchr(child.body(), 0, child.bodySize()) == nullptr;
    return isUnterminated ? ChildFault::unterminated : ChildFault::none;
}

#endif
