#ifndef ZELQCOOD_LOGDATA_LAYOUT_H
#define ZELQCOOD_LOGDATA_LAYOUT_H

#include "block/layout.h"

// Fields can be added behind the last one of a base block; readers take no offence at a longer body.

constexpr unsigned short logDataClass = 0x8005;
constexpr unsigned short microcodeLogDataClass = 0x8006;

namespace logDataLayout {

enum Child : unsigned short { baseBlock = 0, dataBlock = 1 };

constexpr PackedField<std::uint16_t, 0> blockIdField = {};
constexpr std::size_t baseBlockSize = blockIdField.end;

constexpr BlockField fields[] = {
    {"block id", blockIdField, FieldMeaning::itemId},
};
static_assert(cover(fields, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {dataBlock, "dataBlock", BlockChildKind::bytes},
};

constexpr BlockLayout block = {logDataClass, "XLogData", children, fields};

}  // namespace logDataLayout

namespace microcodeLogDataLayout {

constexpr BlockLayout block = {microcodeLogDataClass, "XMicrocodeLogData", {}, {}, logDataClass};

}  // namespace microcodeLogDataLayout

#endif
