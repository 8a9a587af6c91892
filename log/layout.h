#ifndef ZELQCOOD_LOG_LAYOUT_H
#define ZELQCOOD_LOG_LAYOUT_H

#include "logdata/layout.h"

// Fields can be added behind the last one of a base block; readers take no offence at a longer body.

constexpr unsigned short logClassCode = 0x8002;

namespace logLayout {

// 2 is never written.
enum Child : unsigned short { baseBlock = 0, eventNameBlock = 1, logIdBlock = 3 };

constexpr PackedField<std::uint8_t, 0> logClassField = {};
constexpr PackedField<std::uint8_t, 1> logTypeField = {};
constexpr PackedField<std::uint16_t, 2> userField = {};
constexpr PackedField<std::uint32_t, 4> attributesField = {};
constexpr PackedField<std::uint32_t, 8> reserved1Field = {};
constexpr PackedField<std::uint32_t, 12> reserved2Field = {};
constexpr std::size_t baseBlockSize = reserved2Field.end;

constexpr BlockField fieldNames[] = {
    {"class", logClassField},
    {"type", logTypeField},
    {"user", userField},
    {"attributes", attributesField, FieldMeaning::attributes},
    {"reserved 1", reserved1Field},
    {"reserved 2", reserved2Field},
};
static_assert(cover(fieldNames, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {eventNameBlock, "eventNameBlock", BlockChildKind::text},
    {logIdBlock, "logIdBlock", BlockChildKind::text},
    {logDataClass, "XLogData", BlockChildKind::ownReader},
    {microcodeLogDataClass, "XMicrocodeLogData", BlockChildKind::ownReader},
};

constexpr BlockLayout layout = {logClassCode, "XLog", children, fieldNames};

}  // namespace logLayout

#endif
