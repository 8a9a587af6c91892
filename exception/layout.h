#ifndef ZELQCOOD_EXCEPTION_LAYOUT_H
#define ZELQCOOD_EXCEPTION_LAYOUT_H

#include "mclog/layout.h"

// Fields can be added behind the last one of a base block; readers take no offence at a longer body.

constexpr unsigned short exceptionClass = 0x8000;
constexpr unsigned short trapExceptionClass = 0x8001;
constexpr unsigned short baseExceptionClass = 0x8008;

namespace baseExceptionLayout {

enum Child : unsigned short { baseBlock = 0, textBlock = 1, locationBlock = 2 };

constexpr PackedField<std::uint32_t, 0> severityField = {};
constexpr PackedField<std::uint32_t, 4> errorCodeGroupField = {};
constexpr PackedField<std::uint32_t, 8> errorIdField = {};
constexpr PackedText<12, 20> nameField = {};
constexpr PackedField<std::int32_t, 32> loggedField = {};
constexpr std::size_t baseBlockSize = loggedField.end;

constexpr BlockField fieldNames[] = {
    {"severity", severityField, FieldMeaning::severity},
    {"error code group", errorCodeGroupField, FieldMeaning::address},
    {"error id", errorIdField},
    {"name", nameField},
    {"logged", loggedField, FieldMeaning::yesNo},
};
static_assert(cover(fieldNames, baseBlockSize));

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {textBlock, "textBlock", BlockChildKind::text},
    {locationBlock, "locationBlock", BlockChildKind::bytes},
    {endMicrocodeLogClass, "XEndMicrocodeLog", BlockChildKind::ownReader},
};

constexpr BlockLayout layout = {baseExceptionClass, "XBaseException", children, fieldNames};

}  // namespace baseExceptionLayout

namespace locationLayout {

enum Child : unsigned short { fileBlock = 3, functionBlock = 4, lineBlock = 5 };

constexpr PackedField<std::uint32_t, 0> lineField = {};
constexpr std::size_t lineBlockSize = lineField.end;

constexpr BlockField fieldNames[] = {
    {"line", lineField},
};
static_assert(cover(fieldNames, lineBlockSize));

constexpr BlockChildKind children[] = {
    {fileBlock, "locFileBlock", BlockChildKind::text},
    {functionBlock, "locFuncBlock", BlockChildKind::text},
    {lineBlock, "locLineBlock", BlockChildKind::fields, lineBlockSize},
};

constexpr BlockLayout layout = {
    baseExceptionLayout::locationBlock, "locationBlock", children, fieldNames, 0, baseExceptionClass};

}  // namespace locationLayout

// The two kinds, whose blocks wrap that of their base.
namespace exceptionLayout {

constexpr BlockLayout layout = {exceptionClass, "XException", {}, {}, baseExceptionClass};

}  // namespace exceptionLayout

namespace trapExceptionLayout {

constexpr BlockLayout layout = {trapExceptionClass, "XTrapException", {}, {}, baseExceptionClass};

}  // namespace trapExceptionLayout

#endif
