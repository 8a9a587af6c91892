#include "tools/block/treeprinter.h"

#include <algorithm>

namespace zelq {
namespace {

constexpr std::size_t terminalWidth = 80;
constexpr std::size_t foldedLines = 10;
constexpr std::size_t foldedBytes = 64;
constexpr std::size_t longRow = 16;
constexpr std::size_t longRowWidth = longRow * 4 + 4;

std::string typeText(std::uint16_t type) {
    return type < 0x100 ? std::to_string(type) : "0x" + hexDigits(type, 4);
}

std::string numberText(BlockField const& field, std::int64_t number) {
    std::uint64_t const mask = (std::uint64_t{1} << (8 * field.size)) - 1;
    std::string const digits =
        "0x" + hexDigits(static_cast<std::uint64_t>(number) & mask, static_cast<int>(2 * field.size));
    std::string const words = fieldWords(field, number);
    if (field.meaning == FieldMeaning::attributes) {
        return digits + " (" + words + ")";
    }
    return digits + " (" + std::to_string(number) + (words.empty() ? "" : ", " + words) + ")";
}

std::string shownText(std::string_view text) {
    return text.empty() ? "(empty)" : printable(text, true);
}

// The text with line ends after commas, so that it stays on the screen when it begins in `column`.
std::string wrapped(std::string text, std::size_t column) {
    std::size_t const width = terminalWidth - std::min(column, terminalWidth / 2);
    std::size_t start = 0;
    while (text.size() - start > width) {
        std::size_t const comma = text.rfind(", ", start + width - 1);
        if (comma == std::string::npos || comma < start) {
            break;
        }
        start = comma + 2;
        text.replace(start - 1, 1, "\n" + std::string(column, ' '));
        start += column;
    }
    return text;
}

// Where the last `count` lines begin; 0 when there are no more than that. The last line may or may
// not have its line end.
std::size_t startOfLastLines(std::string_view text, std::size_t count) {
    std::size_t at = text.size();
    for (std::size_t i = 0; i < count; ++i) {
        at = at < 2 ? 0 : text.rfind('\n', at - 2) + 1;  // npos + 1 is 0
    }
    return at;
}

}  // namespace

BlockTreePrinter::BlockTreePrinter(Options const& options, std::size_t inputSize, Output& output)
    : options_(options),
      output_(output),
      offsetDigits_(inputSize <= 0x10000     ? 4
                    : inputSize <= 0x1000000 ? 6
                                             : 8) {}

void BlockTreePrinter::begin(BlockNode const& node) {
    if (depth_ == 0 && blocks_++ > 0) {
        output_.print("\n");
        printNote(Style::faint, "block " + std::to_string(blocks_));
    }
    startLine(node.offset);
    output_.print(node.isContainer ? Style::heading : Style::plain, node.name != nullptr ? node.name : "unknown");
    std::string about = "  type " + typeText(node.header.type) + ", " + counted(node.header.size, "byte");
    if (node.header.format != blockFormat) {
        about += ", format " + std::to_string(node.header.format);
    }
    if (node.name != nullptr && !node.isRead) {
        about += ", not read in this place";
    }
    output_.print(Style::faint, about);
    output_.print("\n");
    ++depth_;
}

void BlockTreePrinter::end() {
    --depth_;
}

void BlockTreePrinter::fields(BlockNode const& node, TableRange<BlockField> fields) {
    std::size_t nameWidth = 0;
    for (BlockField const& field : fields) {
        nameWidth = std::max(nameWidth, std::string_view(field.name).size());
    }
    std::size_t shown = 0;
    for (BlockField const& field : fields) {
        if (field.offset + field.size > node.body.size()) {
            break;
        }
        shown = field.offset + field.size;
        startLine(node.bodyOffset() + field.offset);
        output_.print(Style::faint, padded(field.name, nameWidth));
        std::string_view const text = node.body.substr(field.offset, field.size);
        auto const* const body = reinterpret_cast<unsigned char const*>(node.body.data());
        std::string const value =
            field.isText ? shownText(text.substr(0, text.find('\0'))) : numberText(field, fieldNumber(field, body));
        output_.print("  " + wrapped(value, indent() + nameWidth + 2) + "\n");
    }
    printDump(node.bodyOffset() + shown, node.body.substr(shown));
}

void BlockTreePrinter::text(BlockNode const& node, bool isTrace) {
    std::string_view const text = node.body.substr(0, node.body.find('\0'));
    std::size_t at = 0;
    if (isTrace && !options_.full) {
        at = startOfLastLines(text, foldedLines);
    }
    if (at != 0) {
        auto const lines = static_cast<std::size_t>(std::count(text.begin(), text.end() - 1, '\n') + 1);
        printNote(Style::faint,
                  "last " + std::to_string(foldedLines) + " of " + counted(lines, "line") + ", --full shows all");
    }
    if (text.empty()) {
        startLine(node.bodyOffset());
        output_.print("(empty)\n");
    }
    while (at < text.size()) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        startLine(node.bodyOffset() + at);
        output_.print(printable(text.substr(at, end - at), true) + "\n");
        at = end + 1;
    }
    if (text.size() < node.body.size()) {
        std::size_t const behind = text.size() + 1;
        printDump(node.bodyOffset() + behind, node.body.substr(behind));
    }
}

void BlockTreePrinter::bytes(BlockNode const& node) {
    printDump(node.bodyOffset(), node.body);
}

void BlockTreePrinter::rest(std::size_t offset, std::string_view bytes) {
    printDump(offset, bytes);
}

void BlockTreePrinter::fault(std::string const& what) {
    printNote(Style::alarm, what);
}

void BlockTreePrinter::startLine(std::size_t offset) {
    if (options_.offsets) {
        output_.print(Style::faint, hexDigits(offset, offsetDigits_) + "  ");
    }
    output_.print(std::string(2 * depth_, ' '));
}

std::size_t BlockTreePrinter::indent() const {
    return 2 * depth_ + (options_.offsets ? static_cast<std::size_t>(offsetDigits_) + 2 : 0);
}

void BlockTreePrinter::printNote(Style style, std::string const& note) {
    output_.print(std::string(indent(), ' '));
    output_.print(style, "-- " + note + " --");
    output_.print("\n");
}

// Rows of half the length where the tree is too deep for whole ones.
void BlockTreePrinter::printDump(std::size_t offset, std::string_view bytes) {
    std::size_t const row = indent() + longRowWidth <= terminalWidth ? longRow : longRow / 2;
    bool const isFolded = !options_.full && bytes.size() > foldedBytes;
    std::size_t const shown = isFolded ? foldedBytes : bytes.size();
    for (std::size_t at = 0; at < shown; at += row) {
        std::string line;
        appendHexRow(bytes.substr(at, row), row, line);
        startLine(offset + at);
        output_.print(line);
    }
    if (isFolded) {
        printNote(Style::faint, counted(bytes.size() - shown, "more byte") + ", --full shows them");
    }
}

}  // namespace zelq
