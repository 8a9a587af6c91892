#include "tools/block/layout.h"

#include <algorithm>
#include <cstring>

#include "exception/layout.h"
#include "store/microcodelog.h"
#include "store/severity.h"
#include "tools/terminal/output.h"
#include "zelqcood/logdata.h"
#include "zelqplatform/errorlog_items.h"
#include "zelqplatform/zoexception.h"

namespace zelq {
namespace {

// Every class that has a block form, and the records that blocks have as parts.
// clang-format off
constexpr BlockLayout layouts[] = {
    logDataLayout::layout,
    microcodeLogDataLayout::layout,
    logLayout::layout,
    microcodeLogLayout::layout,
    secondaryRefcodeLayout::layout,
    endMicrocodeLogLayout::layout,
    baseExceptionLayout::layout,
    locationLayout::layout,
    exceptionLayout::layout,
    trapExceptionLayout::layout,
};
// clang-format on

constexpr bool haveDifferentTypes(TableRange<BlockLayout> all) {
    for (BlockLayout const& one : all) {
        for (BlockLayout const* other = &one + 1; other != all.end(); ++other) {
            if (one.type == other->type && one.parent == other->parent) {
                return false;
            }
        }
    }
    return true;
}
static_assert(haveDifferentTypes(layouts), "two blocks have one type");

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

TableRange<BlockLayout> blockLayouts() {
    return layouts;
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
