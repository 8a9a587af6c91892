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

constexpr BlockField fieldNames[] = {
    {"block id", blockIdField, FieldMeaning::itemId},
};
static_assert(cover(fieldNames, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {dataBlock, "dataBlock", BlockChildKind::bytes},
};

constexpr BlockLayout layout = {logDataClass, "XLogData", children, fieldNames};

}  // namespace logDataLayout

namespace microcodeLogDataLayout {

constexpr BlockLayout layout = {microcodeLogDataClass, "XMicrocodeLogData", {}, {}, logDataClass};

}  // namespace microcodeLogDataLayout

#endif
