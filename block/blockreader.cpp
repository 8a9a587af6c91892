#include "block/blockreader.h"

#include <cstring>

#include "trace/message.h"
#include "zelqcood/trace.h"

BlockReader::BlockReader(unsigned char* block, char const* component, char level)
    : block_(block), component_(component), level_(level) {}

bool BlockReader::accepts(unsigned short classCode) {
    return accepts(classCode, message(" 0x", hexadecimal(classCode)));
}

bool BlockReader::accepts(unsigned short classCode, char const* expected) {
    if (block_ == nullptr) {
        report("Invalid data pointer: 0x00000000");
        return false;
    }
    BlockHeader const header = BlockHeader::load(block_);
    if (header.type != classCode) {
        report(message("Invalid data type (got ", header.type, ", expecting", expected, ")"));
        return false;
    }
    if (header.format != blockFormat) {
        report(message("Invalid data format (got ", header.format, ", expecting 1)"));
        return false;
    }
    if (header.size < BlockHeader::bytes) {
        report(message("Invalid data size (got ", header.size, ", expecting at least 8)"));
        return false;
    }
    cursor_ = BlockCursor(block_, header.size);
    return true;
}

bool BlockReader::next(BlockChildKind const* kinds, std::size_t count) {
    for (;;) {
        BlockCursor::Step const step = cursor_.next(child_);
        if (step == BlockCursor::atEnd) {
            return false;
        }
        if (step == BlockCursor::cutHeader) {
            report(message("Invalid data end (got ", cursor_.remaining(), " bytes at offset ", cursor_.offset(),
                           ", expecting a header of 8)"));
            return false;
        }
        BlockChildKind const* kind = kinds;
        while (kind != kinds + count && kind->type != child_.header.type) {
            ++kind;
        }
        bool const isKnown = kind != kinds + count;
        if (step == BlockCursor::wrongSize) {
            report(message("Invalid ", isKnown ? kind->name : "child", " data size (got ", child_.header.size,
                           " at offset ", cursor_.offset(), ", expecting 8 to ", cursor_.remaining(), ")"));
            return false;
        }
        if (!isKnown) {
            report(message(unknownType_, hexadecimal(child_.header.type), ")"));
        } else if (isUsable(*kind)) {
            return true;
        }
    }
}

bool BlockReader::isUsable(BlockChildKind const& kind) const {
    switch (faultOf(kind, child_)) {
    case ChildFault::none: return kind.content != BlockChildKind::ignored;
    case ChildFault::wrongFormat:
        report(message("Invalid ", kind.name, " data format (got ", child_.header.format, ", expecting 1)"));
        return false;
    case ChildFault::tooShort:
        report(message("Invalid ", kind.name, " data size (got ", child_.header.size, ", expecting at least ",
                       kind.leastBody + BlockHeader::bytes, ")"));
        return false;
    case ChildFault::unterminated:
        report(message("Invalid ", kind.name, " data (no zero byte in ", bodySize(), " bytes)"));
        return true;
    }
    return false;
}

BlockReader BlockReader::children(char const* unknownType) const {
    BlockReader inner(child_.start, component_, level_);
    inner.unknownType_ = unknownType;
    inner.cursor_ = BlockCursor(child_.start, child_.header.size);
    return inner;
}

ZoString BlockReader::textAt(unsigned char const* characters, std::size_t most) {
    char const* const text = reinterpret_cast<char const*>(characters);
    return ZoString(text, strnlen(text, most));
}

void BlockReader::report(ZoString const& text) const {
    XTrace::write(component_, level_, text);
}
