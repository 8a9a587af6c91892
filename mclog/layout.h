#ifndef ZELQCOOD_MCLOG_LAYOUT_H
#define ZELQCOOD_MCLOG_LAYOUT_H

#include <cstdint>

#include "block/childkind.h"
#include "block/packedfields.h"

// What the block of a microcode log holds: child codes, the fields of the base block, and how a child is
// checked. Everything here reaches disk and other processes: never renumber it. Fields can be added
// behind the last one of a base block; readers take no offence at a longer body.

namespace microcodeLogLayout {

enum Child : unsigned short { baseBlock = 0, textBlock = 1, backtraceBlock = 2, secondaryRefcodeBlock = 3 };

constexpr PackedField<std::uint16_t, 0> errorIdField = {};
constexpr PackedField<std::int32_t, 2> errorReasonField = {};
constexpr PackedField<std::int32_t, 6> ownedField = {};
constexpr std::size_t baseBlockSize = ownedField.end;

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {textBlock, "textBlock", BlockChildKind::text},
    {backtraceBlock, "backtraceBlock", BlockChildKind::text},
    {secondaryRefcodeBlock, "SecondaryRefcodeInfo", BlockChildKind::ownReader},
    {logClassCode, "XLog", BlockChildKind::ignored},
};

}  // namespace microcodeLogLayout

namespace secondaryRefcodeLayout {

enum Child : unsigned short { baseBlock = 0 };

constexpr PackedField<std::uint8_t, 0> logClassField = {};
constexpr PackedField<std::uint8_t, 1> logTypeField = {};
constexpr PackedField<std::uint16_t, 2> errorIdField = {};
constexpr PackedField<std::int32_t, 4> errorReasonField = {};
constexpr std::size_t baseBlockSize = errorReasonField.end;

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
};

}  // namespace secondaryRefcodeLayout

#endif
