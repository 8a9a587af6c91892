// zelq block, as people see it

#include <algorithm>
#include <vector>

#include "store/microcodelog.h"
#include "tools/block/command.h"

namespace zelq {
namespace {

constexpr std::size_t screenWidth = 80;
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

class TreePrinter : public BlockVisitor {
public:
    TreePrinter(BlockOptions const& options, std::size_t inputSize, Output& output)
        : options_(options),
          output_(output),
          offsetDigits_(inputSize <= 0x10000     ? 4
                        : inputSize <= 0x1000000 ? 6
                                                 : 8) {}

    void begin(BlockNode const& node) override {
        if (depth_ == 0 && blocks_++ > 0) {
            output_.printLine();
            printNote(Style::faint, "block " + std::to_string(blocks_));
        }
        startLine(node.offset);
        output_.print(node.name != nullptr ? node.name : "unknown", node.isContainer ? Style::heading : Style::plain);
        std::string about = "  type " + typeText(node.header.type) + ", " + counted(node.header.size, "byte");
        if (node.header.format != blockFormat) {
            about += ", format " + std::to_string(node.header.format);
        }
        if (node.name != nullptr && !node.isRead) {
            about += ", not read in this place";
        }
        output_.printLine(about, Style::faint);
        ++depth_;
    }

    void end() override { --depth_; }

    void fields(BlockNode const& node, TableRange<BlockField> fields) override {
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
            output_.printColumn(field.name, nameWidth, Style::faint);
            output_.print("  ");
            std::string_view const text = node.body.substr(field.offset, field.size);
            auto const* const body = reinterpret_cast<unsigned char const*>(node.body.data());
            std::string const value = field.isText ? printable(text.substr(0, text.find('\0')), Tabs::kept)
                                                   : numberText(field, fieldNumber(field, body));
            printWrapped(value.empty() ? "(empty)" : value, indent() + nameWidth + 2);
        }
        printDump(node.bodyOffset() + shown, node.body.substr(shown));
    }

    void text(BlockNode const& node, bool isTrace) override {
        std::string_view const text = node.body.substr(0, node.body.find('\0'));
        std::vector<std::string_view> lines = linesOf(text);
        if (isTrace && !options_.full && lines.size() > foldedLines) {
            printNote(Style::faint, "last " + std::to_string(foldedLines) + " of " + counted(lines.size(), "line") +
                                        ", --full shows all");
            lines.erase(lines.begin(), lines.end() - foldedLines);
        }
        if (text.empty()) {
            startLine(node.bodyOffset());
            output_.printLine("(empty)");
        }
        for (std::string_view const line : lines) {
            startLine(node.bodyOffset() + static_cast<std::size_t>(line.data() - text.data()));
            output_.printTextLine(line);
        }
        if (text.size() < node.body.size()) {
            std::size_t const behind = text.size() + 1;
            printDump(node.bodyOffset() + behind, node.body.substr(behind));
        }
    }

    void bytes(BlockNode const& node) override { printDump(node.bodyOffset(), node.body); }

    void rest(std::size_t offset, std::string_view bytes) override { printDump(offset, bytes); }

    void fault(std::string const& what) override { printNote(Style::alarm, what); }

private:
    std::size_t indent() const {
        return 2 * depth_ + (options_.offsets ? static_cast<std::size_t>(offsetDigits_) + 2 : 0);
    }

    void startLine(std::size_t offset) {
        if (options_.offsets) {
            output_.print(hexDigits(offset, offsetDigits_) + "  ", Style::faint);
        }
        output_.print(std::string(2 * depth_, ' '));
    }

    void printNote(Style style, std::string const& note) {
        output_.print(std::string(indent(), ' '));
        output_.printLine("-- " + note + " --", style);
    }

    // With line ends after commas, so that a value that begins in `column` stays on the screen.
    void printWrapped(std::string_view shown, std::size_t column) {
        std::size_t const width = screenWidth - std::min(column, screenWidth / 2);
        while (shown.size() > width) {
            std::size_t const comma = shown.rfind(", ", width - 1);
            if (comma == std::string_view::npos) {
                break;
            }
            output_.printTextLine(shown.substr(0, comma + 1));
            output_.print(std::string(column, ' '));
            shown.remove_prefix(comma + 2);
        }
        output_.printTextLine(shown);
    }

    // Rows of half the length where the tree is too deep for whole ones.
    void printDump(std::size_t offset, std::string_view bytes) {
        std::size_t const row = indent() + longRowWidth <= screenWidth ? longRow : longRow / 2;
        bool const isFolded = !options_.full && bytes.size() > foldedBytes;
        std::size_t const shown = isFolded ? foldedBytes : bytes.size();
        for (std::size_t at = 0; at < shown; at += row) {
            startLine(offset + at);
            output_.printLine(hexRow(bytes.substr(at, row), row));
        }
        if (isFolded) {
            printNote(Style::faint, counted(bytes.size() - shown, "more byte") + ", --full shows them");
        }
    }

    BlockOptions options_;
    Output& output_;
    int offsetDigits_;
    std::size_t depth_ = 0;
    std::size_t blocks_ = 0;  // on the outermost level
};

}  // namespace

BlockFaults printBlockTree(std::string& input, BlockOptions const& options, Output& output) {
    TreePrinter printer(options, input.size(), output);
    return walkBlocks(input, printer);
}

}  // namespace zelq
