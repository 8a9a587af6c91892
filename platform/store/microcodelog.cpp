#include "store/microcodelog.h"

#include <algorithm>
#include <cctype>

namespace zelq {
namespace {

constexpr std::string_view secondaryHeading = xlog_secondary_heading;
constexpr std::string_view secondaryPattern = "\nXXXXXXXX XXXXXXXX";  // X: a hexadecimal digit
constexpr std::string_view firstFrame = xlog_first_frame;
constexpr std::string_view deserializedHeading = xlog_deserialized_heading;

// By its bytes alone: some numbers are text by chance, and stored as such.
bool isErrorCode(RecordItem const& item) {
    return item.id == XLOG_ITEM_ERROR_CODE && item.bytes.size() == xlog_error_code::bytes;
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

std::optional<xlog_error_code> errorCode(Record const& record) {
    auto const newest = std::find_if(record.items.rbegin(), record.items.rend(), isErrorCode);
    if (newest == record.items.rend()) {
        return std::nullopt;
    }
    return xlog_error_code::load(newest->bytes.data());
}

std::string referenceCode(Record const& record) {
    std::optional<xlog_error_code> const code = errorCode(record);
    if (!code.has_value()) {
        return "";
    }
    char text[xlog_reference_code_size];
    xlog_put_reference_code(text, static_cast<unsigned char>(record.logClass),
                            static_cast<unsigned char>(record.logType), *code);
    return std::string(text, sizeof text);
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
    // The line end before the heading is the end of the text.
    std::size_t const size = deserializedHeading.size();
    bool const isSecond = start >= size && text.substr(start - size, size) == deserializedHeading;
    return isSecond ? start - size + 1 : start;
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

char const* traceName(std::uint64_t id) {
    switch (id) {
    case XLOG_ITEM_SYSTEM_TRACE: return "system";
    case XLOG_ITEM_PROCESS_TRACE: return "process";
    case XLOG_ITEM_THREAD_TRACE: return "thread";
    default: return nullptr;
    }
}

}  // namespace zelq
