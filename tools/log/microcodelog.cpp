#include "tools/log/microcodelog.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tools/terminal/output.h"
#include "zelqplatform/errorlog_items.h"

namespace zelq {
namespace {

constexpr std::string_view secondaryHeading = "Secondary Reference Codes:\n";
constexpr std::string_view secondaryPattern = "\nXXXXXXXX XXXXXXXX";  // X: a hexadecimal digit
constexpr std::string_view firstFrame = "#0  0x";
constexpr std::string_view deserialized = "Deserialized\n";

// By its bytes alone: some numbers are text by chance, and stored as such.
bool isErrorCode(RecordItem const& item) {
    constexpr std::size_t size = sizeof(std::uint16_t) + sizeof(std::int32_t);
    return item.id == XLOG_ITEM_ERROR_CODE && item.bytes.size() == size;
}

bool isSecondaryCodes(std::string_view text) {
    if (text.substr(0, secondaryHeading.size()) != secondaryHeading) {
        return false;
    }
    text.remove_prefix(secondaryHeading.size());
    if (!text.empty() && text.back() == '\0') {
        text.remove_suffix(1);
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const expected = secondaryPattern[i % secondaryPattern.size()];
        if (expected == 'X' ? std::isxdigit(static_cast<unsigned char>(text[i])) == 0 : text[i] != expected) {
            return false;
        }
    }
    return !text.empty() && text.size() % secondaryPattern.size() == 0;
}

// A snapshot without rows is a single zero byte, which the store does not take for text.
bool isTrace(RecordItem const& item) {
    return traceName(item.id) != nullptr && (item.isText || item.bytes == std::string_view("\0", 1));
}

}  // namespace

std::optional<ErrorCode> errorCode(Record const& record) {
    auto const newest = std::find_if(record.items.rbegin(), record.items.rend(), isErrorCode);
    if (newest == record.items.rend()) {
        return std::nullopt;
    }
    auto const byte = [&](std::size_t i) { return std::uint32_t{static_cast<unsigned char>(newest->bytes[i])}; };
    std::uint32_t const reason = byte(2) | byte(3) << 8 | byte(4) << 16 | byte(5) << 24;
    return ErrorCode{static_cast<std::uint16_t>(byte(0) | byte(1) << 8), static_cast<std::int32_t>(reason)};
}

std::string referenceCode(Record const& record) {
    std::optional<ErrorCode> const code = errorCode(record);
    if (!code.has_value()) {
        return "";
    }
    std::string text = hexDigits(record.logClass == 10 ? 0xA0 : record.logClass, 2) + hexDigits(record.logType, 2) +
                       hexDigits(code->id, 4) + " " + hexDigits(static_cast<std::uint32_t>(code->reason), 8);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::vector<ItemRole> itemRoles(Record const& record) {
    std::vector<ItemRole> roles(record.items.size(), ItemRole::ordinary);
    auto const isTaken = [&roles](ItemRole role) { return std::find(roles.begin(), roles.end(), role) != roles.end(); };
    for (std::size_t i = record.items.size(); i-- > 0;) {  // the newest code is the last one
        if (isErrorCode(record.items[i])) {
            roles[i] = isTaken(ItemRole::errorCode) ? ItemRole::earlierCode : ItemRole::errorCode;
        }
    }
    if (!isTaken(ItemRole::errorCode)) {
        return roles;
    }
    // The log's own texts come first in a record, so they have the first numbers of texts. Without a
    // text of its own the secondary codes have the first one; without those a program's text has it.
    for (std::size_t i = 0; i < record.items.size(); ++i) {
        RecordItem const& item = record.items[i];
        if (isTrace(item)) {
            roles[i] = ItemRole::trace;
        } else if (item.id == XLOG_ITEM_FIRST_TEXT && !isTaken(ItemRole::text) &&
                   backtraceStart(item.bytes) != std::string_view::npos) {  // NOLINT(bugprone-branch-clone): in turn
            roles[i] = ItemRole::text;  // by its frames: one control byte, and the store calls it binary
        } else if ((item.id == XLOG_ITEM_FIRST_TEXT || item.id == XLOG_ITEM_FIRST_TEXT + 1) && item.isText &&
                   !isTaken(ItemRole::secondaryCodes) && isSecondaryCodes(item.bytes)) {
            roles[i] = ItemRole::secondaryCodes;
        } else if (item.id == XLOG_ITEM_FIRST_TEXT && item.isText && !isTaken(ItemRole::text) &&
                   !isTaken(ItemRole::secondaryCodes)) {
            roles[i] = ItemRole::text;  // of a log without a backtrace
        }
    }
    return roles;
}

// A log that came from another process has a second stack after a line of its own; when the first
// one was empty, that line begins the backtrace.
std::size_t backtraceStart(std::string_view text) {
    std::size_t start = text.find(firstFrame);
    while (start != std::string_view::npos && start != 0 && text[start - 1] != '\n') {
        start = text.find(firstFrame, start + 1);
    }
    if (start == std::string_view::npos) {
        return start;
    }
    std::string_view const before = text.substr(0, start);
    bool const isSecond = before.size() > deserialized.size() &&
                          before.substr(before.size() - deserialized.size()) == deserialized &&
                          before[before.size() - deserialized.size() - 1] == '\n';
    return isSecond ? start - deserialized.size() : start;
}

std::vector<std::string_view> logText(Record const& record) {
    std::vector<ItemRole> const roles = itemRoles(record);
    auto const found = std::find(roles.begin(), roles.end(), ItemRole::text);
    if (found == roles.end()) {
        return {};
    }
    std::string_view const text = record.items[static_cast<std::size_t>(found - roles.begin())].bytes;
    return linesOf(text.substr(0, backtraceStart(text)));
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    if (!text.empty() && text.back() == '\0') {
        text.remove_suffix(1);
    }
    while (!text.empty()) {
        std::size_t const end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::string_view secondaryCodes(std::string_view text) {
    return text.substr(secondaryHeading.size() + 1);
}

bool isLibraryRoutine(std::uint64_t traceId, std::string_view row) {
    constexpr std::size_t level = 7;  // behind the component
    constexpr std::size_t text = level + 3;
    for (int heads = traceId == XLOG_ITEM_THREAD_TRACE ? 1 : 2; heads > 0; --heads) {  // time; process or thread
        row.remove_prefix(row.find(' ') + 1);
    }
    if (row.size() < text || row.substr(0, 4) != "XLIB" || row.substr(level + 1, 2) != ": ") {
        return false;
    }
    bool const isScope = row.substr(text, 2) == "> " || row.substr(text, 2) == "< ";
    return isScope || row[level] == 'D';
}

char const* traceName(std::uint64_t id) {
    switch (id) {
    case XLOG_ITEM_SYSTEM_TRACE: return "system";
    case XLOG_ITEM_PROCESS_TRACE: return "process";
    case XLOG_ITEM_THREAD_TRACE: return "thread";
    default: return nullptr;
    }
}

}  // namespace zelq
