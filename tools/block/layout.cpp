#include "tools/block/layout.h"

#include <algorithm>
#include <type_traits>

#include "exception/layout.h"
#include "log/layout.h"
#include "logdata/layout.h"
#include "mclog/layout.h"
#include "store/microcodelog.h"
#include "store/severity.h"
#include "tools/terminal/output.h"
#include "zelqcood/logdata.h"
#include "zelqplatform/errorlog_items.h"
#include "zelqplatform/zoexception.h"

namespace zelq {
namespace {

template <class Value, std::size_t Offset>
constexpr BlockField named(char const* name, PackedField<Value, Offset>, FieldMeaning meaning = FieldMeaning::number) {
    return {name, Offset, sizeof(Value), std::is_signed_v<Value>, false, meaning};
}

template <std::size_t Offset, std::size_t Width>
constexpr BlockField named(char const* name, PackedText<Offset, Width>) {
    return {name, Offset, Width, false, true, FieldMeaning::number};
}

constexpr BlockField logDataFields[] = {
    named("block id", logDataLayout::blockIdField, FieldMeaning::itemId),
};

constexpr BlockField logFields[] = {
    named("class", logLayout::logClassField),
    named("type", logLayout::logTypeField),
    named("user", logLayout::userField),
    named("attributes", logLayout::attributesField, FieldMeaning::attributes),
    named("reserved 1", logLayout::reserved1Field),
    named("reserved 2", logLayout::reserved2Field),
};

constexpr BlockField microcodeLogFields[] = {
    named("error id", microcodeLogLayout::errorIdField),
    named("error reason", microcodeLogLayout::errorReasonField),
    named("owned", microcodeLogLayout::ownedField, FieldMeaning::yesNo),
};

constexpr BlockField secondaryRefcodeFields[] = {
    named("class", secondaryRefcodeLayout::logClassField),
    named("type", secondaryRefcodeLayout::logTypeField),
    named("error id", secondaryRefcodeLayout::errorIdField),
    named("error reason", secondaryRefcodeLayout::errorReasonField),
};

constexpr BlockField exceptionFields[] = {
    named("severity", exceptionLayout::severityField, FieldMeaning::severity),
    named("error code group", exceptionLayout::errorCodeGroupField, FieldMeaning::address),
    named("error id", exceptionLayout::errorIdField),
    named("name", exceptionLayout::nameField),
    named("logged", exceptionLayout::loggedField, FieldMeaning::yesNo),
};

constexpr BlockField locationFields[] = {
    named("line", exceptionLayout::lineField),
};

// A field that a class gets later must have a name here as well.
template <std::size_t Count>
constexpr bool cover(BlockField const (&fields)[Count], std::size_t size) {
    std::size_t end = 0;
    for (BlockField const& field : fields) {
        if (field.offset != end) {
            return false;
        }
        end += field.size;
    }
    return end == size;
}
static_assert(cover(logDataFields, logDataLayout::baseBlockSize));
static_assert(cover(logFields, logLayout::baseBlockSize));
static_assert(cover(microcodeLogFields, microcodeLogLayout::baseBlockSize));
static_assert(cover(secondaryRefcodeFields, secondaryRefcodeLayout::baseBlockSize));
static_assert(cover(exceptionFields, exceptionLayout::baseBlockSize));
static_assert(cover(locationFields, exceptionLayout::lineBlockSize));

// A class that only wraps the block of its base class has no children of its own.
constexpr BlockLayout layouts[] = {
    {exceptionClass, "XException", 0, {}, {}, baseExceptionClass},
    {trapExceptionClass, "XTrapException", 0, {}, {}, baseExceptionClass},
    {logClassCode, "XLog", 0, logLayout::children, logFields},
    {microcodeLogClass, "XMicrocodeLog", 0, microcodeLogLayout::children, microcodeLogFields, logClassCode},
    {endMicrocodeLogClass, "XEndMicrocodeLog", 0, {}, {}, microcodeLogClass},
    {logDataClass, "XLogData", 0, logDataLayout::children, logDataFields},
    {microcodeLogDataClass, "XMicrocodeLogData", 0, {}, {}, logDataClass},
    {baseExceptionClass, "XBaseException", 0, exceptionLayout::children, exceptionFields},
    {microcodeLogLayout::secondaryRefcodeBlock, "SecondaryRefcodeInfo", microcodeLogClass,
     secondaryRefcodeLayout::children, secondaryRefcodeFields},
    {exceptionLayout::locationBlock, "locationBlock", baseExceptionClass, exceptionLayout::locationChildren,
     locationFields},
};

std::string attributeWords(std::int64_t attributes) {
    Severity const& severity = severityOf(static_cast<unsigned>(attributes));
    std::string words = severity.stored;
    std::int64_t unnamed = attributes & ~std::int64_t{severity.bit};
    for (xlog_attribute_name const& flag : xlog_attribute_names) {
        if ((attributes & flag.bit) != 0) {
            words += std::string(", ") + flag.name;
            unnamed &= ~std::int64_t{flag.bit};
        }
    }
    return unnamed == 0 ? words : words + ", unnamed 0x" + hexDigits(static_cast<std::uint64_t>(unnamed), 0);
}

std::string itemWords(std::int64_t itemId) {
    if (isTraceItem(itemId)) {
        return traceName(static_cast<std::uint64_t>(itemId)) + std::string(" trace");
    }
    switch (itemId) {
    case XMicrocodeLogData::binaryFormat: return "binary";
    case XMicrocodeLogData::textFormat: return "text";
    case XLOG_ITEM_ERROR_CODE: return "error id and reason";
    default: return isTextItem(itemId) ? "text of a recorded log" : "";
    }
}

}  // namespace

BlockChildKind const* BlockLayout::childOf(unsigned short childType) const {
    auto const* const kind = std::find_if(children.begin(), children.end(),
                                          [childType](BlockChildKind const& k) { return k.type == childType; });
    return kind == children.end() ? nullptr : kind;
}

// On its own, a block of a small type can only be a record that some class has as a part.
BlockLayout const* blockLayout(unsigned short type, BlockLayout const* parent) {
    auto const* const layout = std::find_if(std::begin(layouts), std::end(layouts), [&](BlockLayout const& l) {
        return l.type == type && (l.parent == 0 || parent == nullptr || l.parent == parent->type);
    });
    return layout == std::end(layouts) ? nullptr : layout;
}

// In the host's byte order, as the library reads it.
std::int64_t fieldNumber(BlockField const& field, unsigned char const* body) {
    auto const load = [&](auto number) {
        std::memcpy(&number, body + field.offset, sizeof number);
        return std::int64_t{number};
    };
    switch (field.size) {
    case 1: return load(std::uint8_t{});
    case 2: return load(std::uint16_t{});
    default: return field.isSigned ? load(std::int32_t{}) : load(std::uint32_t{});
    }
}

std::string fieldWords(BlockField const& field, std::int64_t number) {
    switch (field.meaning) {
    case FieldMeaning::number: return "";
    case FieldMeaning::attributes: return attributeWords(number);
    case FieldMeaning::yesNo: return number != 0 ? "yes" : "no";
    case FieldMeaning::severity: return number == ZoException::recoverable ? "recoverable" : "unrecoverable";
    case FieldMeaning::address: return number != 0 ? "an address in the program that wrote it" : "none";
    case FieldMeaning::itemId: return itemWords(number);
    }
    return "";
}

bool isTextItem(std::int64_t itemId) {
    return itemId == XMicrocodeLogData::textFormat || (itemId >= XLOG_ITEM_FIRST_TEXT && itemId <= XLOG_ITEM_LAST_TEXT);
}

bool isTraceItem(std::int64_t itemId) {
    return traceName(static_cast<std::uint64_t>(itemId)) != nullptr;
}

}  // namespace zelq
