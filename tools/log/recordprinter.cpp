#include "tools/log/writer.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "store/microcodelog.h"
#include "store/severity.h"
#include "tracing/snapshotrow.h"

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

RowOrigin rowOrigin(std::uint64_t traceId) {
    return traceId == XLOG_ITEM_THREAD_TRACE    ? RowOrigin::none
           : traceId == XLOG_ITEM_PROCESS_TRACE ? RowOrigin::thread
                                                : RowOrigin::processAndThread;
}

// A line in which the library tells of its own work: an operation that begins or ends, or a detail of one.
// What it tells of the program or of a failure is none.
bool isLibraryRoutine(std::string_view line) {
    constexpr std::size_t level = 7;  // behind the component
    constexpr std::size_t text = level + 3;
    if (line.size() < text || line.substr(0, 4) != "XLIB" || line.substr(level + 1, 2) != ": ") {
        return false;
    }
    bool const isScope = line.substr(text, 2) == "> " || line.substr(text, 2) == "< ";
    return isScope || line[level] == 'D';
}

// Building a log is some twenty calls of the library: without them, a folded trace ends with what the
// program did. Of one that has nothing else, they are shown.
void printTrace(RecordItem const& item, bool isFull, Output& output) {
    std::vector<std::string_view> lines = linesOf(item.bytes);
    std::string length = counted(lines.size(), "line");
    if (!isFull && lines.size() > foldedLines) {
        auto const isRoutine = [&item](std::string_view row) {
            return isLibraryRoutine(rowText(row, rowOrigin(item.id)));
        };
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

using Field = RecordField<std::string>;

std::string plainText(std::uint64_t number) {
    return std::to_string(number);
}

std::string plainText(std::string const& text) {
    return text;
}

std::string plainText(long long timeUs) {
    return shownExactTime(timeUs);
}

std::string plainText(std::vector<std::string> const& list) {
    std::string text;
    for (std::string const& entry : list) {
        text += (text.empty() ? "" : ", ") + entry;
    }
    return text;
}

std::string plainText(std::vector<RecordItem> const& items) {
    return counted(items.size(), "item");
}

void printPlainly(Record const& record, Field const& field, Output& output) {
    std::string name(field.name);
    std::replace(name.begin(), name.end(), '_', ' ');
    printField(name, std::visit([&](auto member) { return plainText(record.*member); }, field.member), output);
}

template <int Digits>
void printNumber(Record const& record, Field const& field, Output& output) {
    printField(field.name, number(record.*std::get<std::uint64_t Record::*>(field.member), Digits), output);
}

void printSeverity(Record const& record, Field const&, Output& output) {
    bool const isAlarming = severityStoredAs(record.severity).isAlarming;
    printField("severity", record.severity, output, isAlarming ? Style::alarm : Style::plain);
    if (errorCode(record).has_value()) {
        printField("refcode", referenceCode(record), output);
    }
}

void printUser(Record const& record, Field const& field, Output& output) {
    printNumber<4>(record, field, output);
    if (std::optional<xlog_error_code> const code = errorCode(record)) {
        // Signed: a reason is often an error number, and some programs have negative ones.
        printField("error", "id " + number(code->id, 4) + ", reason " + std::to_string(code->reason), output);
    }
}

void printProgram(Record const& record, Field const&, Output& output) {
    printField("program",
               record.program + ", process " + std::to_string(record.pid) + ", thread " + std::to_string(record.tid),
               output);
}

void printAttributes(Record const& record, Field const&, Output& output) {
    std::string const flags = plainText(record.flags);
    printField("attributes", "0x" + hexDigits(record.attributes, 4) + (flags.empty() ? "" : " " + flags), output);
}

void printLostBefore(Record const& record, Field const&, Output& output) {
    if (record.lostBefore > 0) {
        printField("lost before", counted(record.lostBefore, "record") + " of this process could not be stored",
                   output);
    }
}

// What another field shows, or what stands below all fields.
void printElsewhere(Record const&, Field const&, Output&) {}

struct Presentation {
    Field::Member member;
    void (*print)(Record const& record, Field const& field, Output& output);
};

// In the order in which people look for them. A field that is missing here comes plainly behind all others.
constexpr Presentation presentations[] = {
    {&Record::id, printPlainly},
    {&Record::timeUs, printPlainly},
    {&Record::severity, printSeverity},
    {&Record::event, printPlainly},
    {&Record::logId, printPlainly},
    {&Record::logClass, printNumber<2>},
    {&Record::logType, printNumber<2>},
    {&Record::user, printUser},
    {&Record::program, printProgram},
    {&Record::host, printPlainly},
    {&Record::attributes, printAttributes},
    {&Record::lostBefore, printLostBefore},
    {&Record::version, printElsewhere},
    {&Record::pid, printElsewhere},
    {&Record::tid, printElsewhere},
    {&Record::flags, printElsewhere},
    {&Record::items, printElsewhere},
};

void printFields(Record const& record, Output& output) {
    auto const printIf = [&](auto matches, auto print) {
        for (Field const& field : recordFields<std::string>) {
            if (matches(field)) {
                print(record, field, output);
            }
        }
    };
    for (Presentation const& presentation : presentations) {
        printIf([&](Field const& field) { return field.member == presentation.member; }, presentation.print);
    }
    auto const isMissing = [](Field const& field) {
        return std::none_of(std::begin(presentations), std::end(presentations),
                            [&field](Presentation const& p) { return p.member == field.member; });
    };
    printIf(isMissing, printPlainly);
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
