#include "block/blockreader.h"

#include <cstring>

template <class... Pieces>
void BlockReader::report(Pieces const&... pieces) const {
    traceLine(component_, level_, pieces...);
}

BlockReader::BlockReader(unsigned char* block, TraceMask& component, char level)
    : block_(block), component_(component), level_(level), cursor_(nullptr, 0) {}

bool BlockReader::accepts(unsigned short classCode, char const* expected) {
    if (block_ == nullptr) {
        report("Invalid data pointer: 0x00000000");
        return false;
    }
    BlockHeader const header = BlockHeader::load(block_);
    if (header.type != classCode) {
        if (expected != nullptr) {
            report("Invalid data type (got ", header.type, ", expecting", expected, ")");
        } else {
            report("Invalid data type (got ", header.type, ", expecting 0x", hexadecimal(classCode), ")");
        }
        return false;
    }
    if (header.format != blockFormat) {
        report("Invalid data format (got ", header.format, ", expecting 1)");
        return false;
    }
    if (header.size < BlockHeader::bytes) {
        report("Invalid data size (got ", header.size, ", expecting at least 8)");
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
            report("Invalid data end (got ", cursor_.remaining(), " bytes at offset ", cursor_.offset(),
                   ", expecting a header of 8)");
            return false;
        }
        BlockChildKind const* kind = kinds;
        while (kind != kinds + count && kind->type != child_.header.type) {
            ++kind;
        }
        bool const isKnown = kind != kinds + count;
        if (step == BlockCursor::wrongSize) {
            report("Invalid ", isKnown ? kind->name : "child", " data size (got ", child_.header.size, " at offset ",
                   cursor_.offset(), ", expecting 8 to ", cursor_.remaining(), ")");
            return false;
        }
        if (!isKnown) {
            report(unknownType_, hexadecimal(child_.header.type), ")");
        } else if (isUsable(*kind)) {
            return true;
        }
    }
}

bool BlockReader::isUsable(BlockChildKind const& kind) const {
    if (kind.content == BlockChildKind::ownReader) {
        return true;
    }
    if (kind.content == BlockChildKind::ignored) {
        return false;
    }
    if (child_.header.format != blockFormat) {
        report("Invalid ", kind.name, " data format (got ", child_.header.format, ", expecting 1)");
        return false;
    }
    if (bodySize() < kind.leastBody) {
        report("Invalid ", kind.name, " data size (got ", child_.header.size, ", expecting at least ",
               kind.leastBody + BlockHeader::bytes, ")");
        return false;
    }
    if (kind.content == BlockChildKind::text && bodySize() != 0 && std::memchr(body(), 0, bodySize()) == nullptr) {
        report("Invalid ", kind.name, " data (no zero byte in ", bodySize(), " bytes)");
    }
    return true;
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
