#include "tools/block/hextext.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/text.h"
#include "tools/commandline/options.h"

namespace zelq {
namespace {

constexpr std::string_view blanks = " \t\r,";
constexpr std::size_t offsetDigitsLeast = 4;
constexpr std::size_t offsetDigitsMost = 16;
// Where a row with a colon may have it, and how long it may be, so that looking for it ends soon.
constexpr std::size_t colonColumnMost = 200;
constexpr std::size_t colonRowMost = 2048;

std::optional<std::uint64_t> parseOffset(std::string_view word) {
    bool const isLikely = word.size() >= offsetDigitsLeast && word.size() <= offsetDigitsMost;
    return isLikely ? parseNumber(word, 16) : std::nullopt;
}

std::string_view withoutPrefix(std::string_view word) {
    bool const hasPrefix = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    return hasPrefix ? word.substr(2) : word;
}

std::string_view withoutBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

/// Takes the next word off the text; empty at its end.
std::string_view takeWord(std::string_view& text) {
    text = withoutBlanks(text);
    std::string_view const word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// A line of text, taken apart.
struct Row {
    std::optional<std::uint64_t> offset;
    std::string bytes;
    std::string_view bad;  ///< the first word that is none of a row; empty when there is none
};

/// Words of digits, behind an offset or without one.
Row rowOf(std::optional<std::uint64_t> offset, std::string_view words) {
    Row row = {offset, "", ""};
    for (std::string_view word = takeWord(words); !word.empty(); word = takeWord(words)) {
        std::string_view const digits = withoutPrefix(word);
        for (std::size_t i = 0; i < digits.size() && row.bad.empty(); i += 2) {
            std::optional<std::uint64_t> const byte = parseNumber(digits.substr(i, 2), 16);
            bool const isByte = byte.has_value() && i + 2 <= digits.size();
            row.bytes.append(isByte ? 1 : 0, static_cast<char>(byte.value_or(0)));
            row.bad = isByte ? "" : word;
        }
        if (!row.bad.empty()) {
            break;
        }
    }
    return row;
}

Row columnsRow(std::string_view line) {
    std::string_view const word = takeWord(line);
    std::optional<std::uint64_t> const offset = parseOffset(word);
    return offset.has_value() ? rowOf(offset, line.substr(0, line.find_first_of("|>"))) : Row{offset, "", word};
}

// The offset is the first word of digits and a colon that bytes follow.
Row colonRow(std::string_view line) {
    Row row = {std::nullopt, "", line};
    std::size_t colon = line.size() > colonRowMost ? std::string_view::npos : line.find(':');
    for (; colon < colonColumnMost && !row.bad.empty(); colon = line.find(':', colon + 1)) {
        std::string_view const before = line.substr(0, colon);
        std::optional<std::uint64_t> const offset =
            parseOffset(withoutPrefix(before.substr(before.find_last_of(blanks) + 1)));  // npos + 1 is 0
        if (offset.has_value()) {
            std::string_view const behind = withoutBlanks(line.substr(colon + 1));
            row = rowOf(offset, behind.substr(0, behind.find("  ")));
        }
    }
    return row;
}

/// Reads one line after the other, in the form that the first one has.
class Reader {
public:
    Reader(std::size_t most, std::string& bytes) : most_(most), bytes_(bytes) {}

    /// Returns what is wrong with the line, or "".
    std::string read(std::string_view line) {
        std::string_view rest = line;
        std::string_view const first = takeWord(rest);
        if (first.empty()) {
            return "";
        }
        rowOfForm_ = rowOfForm_ != nullptr ? rowOfForm_ : formOf(line);
        if (first == "*" && rowOfForm_ != wordsRow && !row_.empty()) {
            isRepeated_ = true;
            return "";
        }
        Row row = rowOfForm_(line);
        if (!row.bad.empty()) {
            return "'" + std::string(row.bad.substr(0, 20)) + "' where two hexadecimal digits a byte should be";
        }
        std::string const fault = row.offset.has_value() ? goTo(*row.offset) : "";
        if (fault.empty() && row.bytes.size() > most_ - bytes_.size()) {
            return "more than " + std::to_string(most_) + " bytes";
        }
        bytes_ += row.bytes;
        row_ = std::move(row.bytes);
        return fault;
    }

    /// Returns what is missing at the end.
    std::string finish() const { return isRepeated_ ? "no offset behind the '*'" : ""; }

private:
    using RowOf = Row (*)(std::string_view line);

    static Row wordsRow(std::string_view line) { return rowOf(std::nullopt, line); }

    // Plain words cannot begin with an offset 0: no block has that size.
    static RowOf formOf(std::string_view line) {
        if (colonRow(line).bad.empty()) {
            return colonRow;
        }
        bool const hasColumns = line.find_first_of("|>") != std::string_view::npos;
        std::optional<std::uint64_t> const offset = parseOffset(takeWord(line));
        return offset.has_value() && (*offset == 0 || hasColumns) ? columnsRow : wordsRow;
    }

    // Fills with the last row what was left out before this offset.
    std::string goTo(std::uint64_t offset) {
        base_ = base_.value_or(offset);
        std::uint64_t const at = offset - *base_;
        if (at > most_) {
            return "offset 0x" + hexDigits(offset, 0) + " is too large";
        }
        while (isRepeated_ && bytes_.size() < at) {
            bytes_.append(row_, 0, static_cast<std::size_t>(at - bytes_.size()));
        }
        isRepeated_ = false;
        return at == bytes_.size() ? ""
                                   : "offset 0x" + hexDigits(offset, 0) + " where 0x" +
                                         hexDigits(*base_ + bytes_.size(), 0) + " should be";
    }

    std::size_t most_;
    std::string& bytes_;
    RowOf rowOfForm_ = nullptr;
    std::optional<std::uint64_t> base_;  // the first offset
    std::string row_;                    // the last one
    bool isRepeated_ = false;
};

}  // namespace

bool isPlainText(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](unsigned char c) { return isPrintableAscii(c) || c == '\t' || c == '\n' || c == '\r'; });
}

HexText parseHexText(std::string_view text, std::size_t most) {
    HexText result;
    Reader reader(most, result.bytes);
    std::size_t number = 0;
    while (!text.empty() && result.fault.empty()) {
        ++number;
        std::size_t const end = std::min(text.find('\n'), text.size());
        result.fault = reader.read(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    result.fault = result.fault.empty() ? reader.finish() : result.fault;
    if (!result.fault.empty()) {
        result.fault = "line " + std::to_string(number) + ": " + result.fault;
    }
    return result;
}

}  // namespace zelq
