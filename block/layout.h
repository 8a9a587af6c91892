#ifndef ZELQCOOD_BLOCK_LAYOUT_H
#define ZELQCOOD_BLOCK_LAYOUT_H

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "block/cursor.h"

// In these terms each class says, in the layout.h of its folder, what its block holds. Readers and writers
// take from there what they check and where fields stand; the whole is for those who look at blocks from
// outside. Block types from 0x8000 on stand for classes, 0x8007 is not used; smaller ones mean something
// only inside their parent. All of it reaches disk and other processes: never renumber it.

/// The one format that all blocks have so far.
constexpr unsigned short blockFormat = 1;

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

/// What the number in a field stands for, for those who show it to people.
enum class FieldMeaning {
    number,
    yesNo,
    address,     ///< in the process that wrote it
    severity,    ///< of an exception
    attributes,  ///< of a log
    itemId,      ///< tells what the bytes in the item's next child are
};

/// One field in a child of fixed fields. A field of characters has no number.
struct BlockField {
    template <class Value, std::size_t Offset>
    constexpr BlockField(char const* fieldName, PackedField<Value, Offset>, FieldMeaning what = FieldMeaning::number)
        : name(fieldName), offset(Offset), size(sizeof(Value)), isSigned(std::is_signed_v<Value>), meaning(what) {}

    template <std::size_t Offset, std::size_t Width>
    constexpr BlockField(char const* fieldName, PackedText<Offset, Width>)
        : name(fieldName), offset(Offset), size(Width), isText(true) {}

    char const* name;
    std::size_t offset;
    std::size_t size;
    bool isSigned = false;
    bool isText = false;
    FieldMeaning meaning = FieldMeaning::number;
};

/// True when the fields fill a body of this size one after the other: none that a class gets later may
/// be without a name.
template <std::size_t Count>
constexpr bool cover(BlockField const (&fields)[Count], std::size_t size) {
    std::size_t end = 0;
    for (BlockField const& field : fields) {
        if (field.offset != end) {
            return false;
        }
        end += field.size;
    }
    return end == size;
}

/// Some entries of a constant table.
template <class Entry>
struct TableRange {
    constexpr TableRange() = default;
    template <std::size_t Count>
    constexpr TableRange(Entry const (&table)[Count]) : first(table), last(table + Count) {}
    constexpr Entry const* begin() const { return first; }
    constexpr Entry const* end() const { return last; }

    Entry const* first = nullptr;
    Entry const* last = nullptr;
};

/// What a block with children holds. A class that only wraps the block of its base class has no children
/// of its own.
struct BlockLayout {
    unsigned short type;
    char const* name;
    TableRange<BlockChildKind> children;
    TableRange<BlockField> fields;  ///< of the child that holds fields; no block has two of them
    unsigned short baseClass = 0;   ///< the class whose block must be inside, or 0
    unsigned short parent = 0;      ///< for a type that only means something inside this one; otherwise 0

    /// The kind of its children of this type; null when it knows none or reads them by other means.
    BlockChildKind const* childOf(unsigned short childType) const {
        for (BlockChildKind const& kind : children) {
            if (kind.type == childType) {
                return &kind;
            }
        }
        return nullptr;
    }

    /// True when such children of this block are read.
    bool reads(unsigned short childType) const { return childType == baseClass || childOf(childType) != nullptr; }
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
