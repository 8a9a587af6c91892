#ifndef ZELQCOOD_LOGDATA_LAYOUT_H
#define ZELQCOOD_LOGDATA_LAYOUT_H

#include <cstdint>

#include "block/childkind.h"
#include "block/packedfields.h"

// What the block of a data item holds: child codes, the fields of the base block, and how a child is
// checked. Everything here reaches disk and other processes: never renumber it. Fields can be added
// behind the last one of a base block; readers take no offence at a longer body.

namespace logDataLayout {

enum Child : unsigned short { baseBlock = 0, dataBlock = 1 };

constexpr PackedField<std::uint16_t, 0> blockIdField = {};
constexpr std::size_t baseBlockSize = blockIdField.end;

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {dataBlock, "dataBlock", BlockChildKind::bytes},
};

}  // namespace logDataLayout

#endif
