#ifndef ZELQCOOD_MCLOG_LAYOUT_H
#define ZELQCOOD_MCLOG_LAYOUT_H

#include "log/layout.h"

// Fields can be added behind the last one of a base block; readers take no offence at a longer body.

constexpr unsigned short microcodeLogClass = 0x8003;
constexpr unsigned short endMicrocodeLogClass = 0x8004;

namespace microcodeLogLayout {

enum Child : unsigned short { baseBlock = 0, textBlock = 1, backtraceBlock = 2, secondaryRefcodeBlock = 3 };

constexpr PackedField<std::uint16_t, 0> errorIdField = {};
constexpr PackedField<std::int32_t, 2> errorReasonField = {};
constexpr PackedField<std::int32_t, 6> ownedField = {};
constexpr std::size_t baseBlockSize = ownedField.end;

constexpr BlockField fieldNames[] = {
    {"error id", errorIdField},
    {"error reason", errorReasonField},
    {"owned", ownedField, FieldMeaning::yesNo},
};
static_assert(cover(fieldNames, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {textBlock, "textBlock", BlockChildKind::text},
    {backtraceBlock, "backtraceBlock", BlockChildKind::text},
    {secondaryRefcodeBlock, "SecondaryRefcodeInfo", BlockChildKind::ownReader},
    {logClassCode, "XLog", BlockChildKind::ignored},
};

constexpr BlockLayout layout = {microcodeLogClass, "XMicrocodeLog", children, fieldNames, logClassCode};

}  // namespace microcodeLogLayout

namespace secondaryRefcodeLayout {

enum Child : unsigned short { baseBlock = 0 };

constexpr PackedField<std::uint8_t, 0> logClassField = {};
constexpr PackedField<std::uint8_t, 1> logTypeField = {};
constexpr PackedField<std::uint16_t, 2> errorIdField = {};
constexpr PackedField<std::int32_t, 4> errorReasonField = {};
constexpr std::size_t baseBlockSize = errorReasonField.end;

constexpr BlockField fieldNames[] = {
    {"class", logClassField},
    {"type", logTypeField},
    {"error id", errorIdField},
    {"error reason", errorReasonField},
};
static_assert(cover(fieldNames, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
};

constexpr BlockLayout layout = {
    microcodeLogLayout::secondaryRefcodeBlock, "SecondaryRefcodeInfo", children, fieldNames, 0, microcodeLogClass};

}  // namespace secondaryRefcodeLayout

namespace endMicrocodeLogLayout {

constexpr BlockLayout layout = {endMicrocodeLogClass, "XEndMicrocodeLog", {}, {}, microcodeLogClass};

}  // namespace endMicrocodeLogLayout

#endif
