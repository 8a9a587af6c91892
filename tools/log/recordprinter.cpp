#include "tools/log/recordprinter.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/commandline/timetext.h"
#include "tools/log/microcodelog.h"

namespace zelq {
namespace {

constexpr std::size_t nameWidth = 11;

void printField(std::string_view name, std::string_view value, Output& output, Style style = Style::plain) {
    output.printColumn(name, nameWidth, Style::faint);
    output.print(" ");
    output.printLine(value, style);
}

std::string number(std::uint64_t value, int digits) {
    return "0x" + hexDigits(value, digits) + " (" + std::to_string(value) + ")";
}

void printLines(std::vector<std::string_view> const& lines, Output& output) {
    for (std::string_view const line : lines) {
        output.print(line.empty() ? "" : "    ");
        output.printTextLine(line);
    }
}

void printSection(std::string const& heading, std::vector<std::string_view> const& lines, Output& output) {
    output.printLine(heading, Style::heading);
    printLines(lines, output);
}

void printTextAndBacktrace(std::string_view item, Output& output) {
    std::size_t const start = backtraceStart(item);
    std::vector<std::string_view> const text = linesOf(item.substr(0, start));
    if (std::any_of(text.begin(), text.end(), [](std::string_view line) { return !line.empty(); })) {
        printSection("text", text, output);
    }
    if (start != std::string_view::npos) {
        printSection("backtrace", linesOf(item.substr(start)), output);
    }
}

// Building a log is some twenty calls of the library: without them, a folded trace ends with what the
// program did. Of one that has nothing else, they are shown.
void printTrace(RecordItem const& item, bool isFull, Output& output) {
    std::vector<std::string_view> lines = linesOf(item.bytes);
    std::string length = counted(lines.size(), "line");
    if (!isFull && lines.size() > foldedLines) {
        auto const isRoutine = [&item](std::string_view row) { return isLibraryRoutine(item.id, row); };
        auto const routine = std::stable_partition(lines.begin(), lines.end(), isRoutine);
        auto const hidden = routine == lines.end() ? 0 : routine - lines.begin();
        auto const shown = std::min<std::ptrdiff_t>(lines.end() - lines.begin() - hidden, foldedLines);
        length = "last " + std::to_string(shown) + " of " + length +
                 (hidden > 0 ? ", " + counted(static_cast<std::uint64_t>(hidden), "library line") + " hidden" : "") +
                 " (--full shows all)";
        lines.erase(lines.begin(), lines.end() - shown);
    }
    printSection(std::string(traceName(item.id)) + " trace, " + length, lines, output);
}

void printItem(RecordItem const& item, char const* note, Output& output) {
    printField("item 0x" + hexDigits(item.id, 2),
               counted(item.bytes.size(), "byte") + (item.isText ? ", text" : "") + note, output);
    if (item.isText) {
        printLines(linesOf(item.bytes), output);
        return;
    }
    // Four digits keep a line below 80 columns; longer items get what they need.
    int const digits = item.bytes.size() > 0x10000 ? 6 : 4;
    for (std::size_t offset = 0; offset < item.bytes.size(); offset += 16) {
        output.printLine("    " + hexDigits(offset, digits) + "  " +
                         hexRow(std::string_view(item.bytes).substr(offset, 16), 16));
    }
}

void printFields(Record const& record, Output& output) {
    printField("id", record.id, output);
    printField("time", shownTime(record.timeUs, true), output);
    printField("severity", record.severity, output, record.severity == "error" ? Style::alarm : Style::plain);
    std::optional<ErrorCode> const code = errorCode(record);
    if (code.has_value()) {
        printField("refcode", referenceCode(record), output);
    }
    printField("event", record.event, output);
    printField("log id", record.logId, output);
    printField("class", number(record.logClass, 2), output);
    printField("type", number(record.logType, 2), output);
    printField("user", number(record.user, 4), output);
    if (code.has_value()) {
        // Signed: a reason is often an error number, and some programs have negative ones.
        printField("error", "id " + number(code->id, 4) + ", reason " + std::to_string(code->reason), output);
    }
    printField("program",
               record.program + ", process " + std::to_string(record.pid) + ", thread " + std::to_string(record.tid),
               output);
    printField("host", record.host, output);
    std::string flags;
    for (std::string const& flag : record.flags) {
        flags += (flags.empty() ? "" : ", ") + flag;
    }
    printField("attributes", "0x" + hexDigits(record.attributes, 4) + (flags.empty() ? "" : " " + flags), output);
    if (record.lostBefore > 0) {
        printField("lost before", counted(record.lostBefore, "record") + " of this process could not be stored",
                   output);
    }
}

}  // namespace

// Each item has one role and each role one place below, so that no item is left out or comes twice.
void printRecord(Record const& record, bool isFull, Output& output) {
    printFields(record, output);
    std::vector<ItemRole> const roles = itemRoles(record);
    auto const forEach = [&](ItemRole role, auto print) {
        for (std::size_t i = 0; i < roles.size(); ++i) {
            if (roles[i] == role) {
                print(record.items[i]);
            }
        }
    };
    forEach(ItemRole::text, [&](RecordItem const& item) { printTextAndBacktrace(item.bytes, output); });
    forEach(ItemRole::secondaryCodes, [&](RecordItem const& item) {
        printSection("secondary reference codes", linesOf(secondaryCodes(item.bytes)), output);
    });
    forEach(ItemRole::trace, [&](RecordItem const& item) { printTrace(item, isFull, output); });
    forEach(ItemRole::ordinary, [&](RecordItem const& item) { printItem(item, "", output); });
    forEach(ItemRole::earlierCode,
            [&](RecordItem const& item) { printItem(item, ", error id and reason of an earlier recording", output); });
    // ItemRole::errorCode stands among the fields.
}

}  // namespace zelq
