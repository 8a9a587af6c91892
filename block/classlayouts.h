#ifndef ZELQCOOD_BLOCK_CLASSLAYOUTS_H
#define ZELQCOOD_BLOCK_CLASSLAYOUTS_H

#include <cstdint>

#include "block/childkind.h"
#include "block/packedfields.h"

// What the blocks of each class hold: child codes, the fields of the base block, and how a child is
// checked. Everything here reaches disk and other processes: never renumber it. Fields can be added
// behind the last one of a base block; readers take no offence at a longer body.
//
// Classes that add nothing of their own to a base class have a block with that class's block in it
// and no layout here: XMicrocodeLogData (XLogData), XEndMicrocodeLog (XMicrocodeLog), XException and
// XTrapException (XBaseException).

namespace logDataLayout {

enum Child : unsigned short { baseBlock = 0, dataBlock = 1 };

constexpr PackedField<std::uint16_t, 0> blockIdField = {};
constexpr std::size_t baseBlockSize = blockIdField.end;

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {dataBlock, "dataBlock", BlockChildKind::bytes},
};

}  // namespace logDataLayout

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

constexpr BlockChildKind children[] = {
    {baseBlock, "baseBlock", BlockChildKind::fields, baseBlockSize},
    {eventNameBlock, "eventNameBlock", BlockChildKind::text},
    {logIdBlock, "logIdBlock", BlockChildKind::text},
    {logDataClass, "XLogData", BlockChildKind::ownReader},
    {microcodeLogDataClass, "XMicrocodeLogData", BlockChildKind::ownReader},
};

}  // namespace logLayout

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
