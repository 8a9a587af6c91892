#ifndef ZELQCOOD_EXCEPTION_LAYOUT_H
#define ZELQCOOD_EXCEPTION_LAYOUT_H

#include <cstdint>

#include "block/childkind.h"
#include "block/packedfields.h"

// What the block of an exception holds: child codes, the fields of the base block, and how a child is
// checked. Everything here reaches disk and other processes: never renumber it. Fields can be added
// behind the last one of a base block; readers take no offence at a longer body.

namespace exceptionLayout {

enum Child : unsigned short { baseBlock = 0, textBlock = 1, locationBlock = 2 };

constexpr PackedField<std::uint32_t, 0> severityField = {};
constexpr PackedField<std::uint32_t, 4> errorCodeGroupField = {};
constexpr PackedField<std::uint32_t, 8> errorIdField = {};
constexpr PackedText<12, 20> nameField = {};
constexpr PackedField<std::int32_t, 32> loggedField = {};
constexpr std::size_t baseBlockSize = loggedField.end;

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {textBlock, "textBlock", BlockChildKind::text},
    {locationBlock, "locationBlock", BlockChildKind::bytes},
    {endMicrocodeLogClass, "XEndMicrocodeLog", BlockChildKind::ownReader},
};

enum LocationChild : unsigned short { locFileBlock = 3, locFuncBlock = 4, locLineBlock = 5 };

constexpr PackedField<std::uint32_t, 0> lineField = {};
constexpr std::size_t lineBlockSize = lineField.end;

constexpr BlockChildKind locationChildren[] = {
    {locFileBlock, "locFileBlock", BlockChildKind::text},
    {locFuncBlock, "locFuncBlock", BlockChildKind::text},
    {locLineBlock, "locLineBlock", BlockChildKind::fields, lineBlockSize},
};

}  // namespace exceptionLayout

#endif
