#include "block/reader.h"

#include <cstring>

template <class... Pieces>
void BlockReader::report(Pieces const&... pieces) const {
    traceLine(component_, level_, pieces...);
}

void BlockReader::reportBlock(unsigned short classCode, char const* expected) const {
    if (block_ == nullptr) {
        report("Invalid data pointer: 0x00000000");
        return;
    }
    BlockHeader const header = BlockHeader::load(block_);
    if (header.type != classCode && expected != nullptr) {
        report("Invalid data type (got ", header.type, ", expecting", expected, ")");
    } else if (header.type != classCode) {
        report("Invalid data type (got ", header.type, ", expecting 0x", hexadecimal(classCode), ")");
    } else if (header.format != blockFormat) {
        report("Invalid data format (got ", header.format, ", expecting 1)");
    } else {
        report("Invalid data size (got ", header.size, ", expecting at least 8)");
    }
}

void BlockReader::reportUnknown() const {
    report(unknownType_, hexadecimal(child_.header.type), ")");
}

void BlockReader::reportDamage(BlockCursor::Step step, BlockChildKind const* kind) const {
    if (step == BlockCursor::cutHeader) {
        report("Invalid data end (got ", cursor_.remaining(), " bytes at offset ", cursor_.offset(),
               ", expecting a header of 8)");
    } else {
        report("Invalid ", kind != nullptr ? kind->name : "child", " data size (got ", child_.header.size,
               " at offset ", cursor_.offset(), ", expecting 8 to ", cursor_.remaining(), ")");
    }
}

void BlockReader::reportChild(BlockChildKind const& kind, ChildFault fault) const {
    switch (fault) {
    case ChildFault::none: break;
    case ChildFault::wrongFormat:
        report("Invalid ", kind.name, " data format (got ", child_.header.format, ", expecting 1)");
        break;
    case ChildFault::tooShort:
        report("Invalid ", kind.name, " data size (got ", child_.header.size, ", expecting at least ",
               kind.leastBody + BlockHeader::bytes, ")");
        break;
    case ChildFault::unterminated:
        report("Invalid ", kind.name, " data (no zero byte in ", bodySize(), " bytes)");
        break;
    }
}

BlockReader BlockReader::inside(unsigned char* block, TraceMask& component, char level, char const* unknownType) {
    BlockReader reader(block, component, level);
    reader.unknownType_ = unknownType;
    reader.cursor_ = BlockCursor(block, BlockHeader::load(block).size);
    return reader;
}

ZoString BlockReader::textAt(unsigned char const* characters, std::size_t most) {
    char const* const text = reinterpret_cast<char const*>(characters);
    return ZoString(text, strnlen(text, most));
}
