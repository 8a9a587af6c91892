#include "tools/block/hextext.h"

#include <algorithm>
#include <cstdint>

#include "common/text.h"
#include "tools/terminal/output.h"

namespace zelq {
namespace {

constexpr std::string_view blanks = " \t\r,";
constexpr std::size_t offsetDigitsLeast = 4;
constexpr std::size_t offsetDigitsMost = 16;
// Where a row with a colon may have it, and how long it may be, so that looking for it ends soon.
constexpr std::size_t colonColumnMost = 200;
constexpr std::size_t colonRowMost = 2048;

int hexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

bool isHex(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return hexDigit(c) >= 0; });
}

bool isOffset(std::string_view word) {
    return word.size() >= offsetDigitsLeast && word.size() <= offsetDigitsMost && isHex(word);
}

std::uint64_t hexNumber(std::string_view digits) {
    std::uint64_t number = 0;
    for (char const c : digits) {
        number = number << 4 | static_cast<std::uint64_t>(hexDigit(c));
    }
    return number;
}

std::string_view withoutPrefix(std::string_view word) {
    bool const hasPrefix = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    return hasPrefix ? word.substr(2) : word;
}

/// Takes the next word off the text; empty at its end.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    std::string_view const word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// Appends the bytes of words of digits. Returns the first word that is none, or an empty one.
std::string_view appendBytes(std::string_view text, std::string& bytes) {
    for (std::string_view word = takeWord(text); !word.empty(); word = takeWord(text)) {
        std::string_view const digits = withoutPrefix(word);
        if (!isHex(digits) || digits.size() % 2 != 0) {
            return word;
        }
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            bytes += static_cast<char>(hexDigit(digits[i]) << 4 | hexDigit(digits[i + 1]));
        }
    }
    return {};
}

/// A line of text, taken apart.
struct Row {
    bool hasOffset = false;
    std::uint64_t offset = 0;
    std::string bytes;
    std::string_view bad;  ///< the first word that is none of a row
};

class HexText {
public:
    HexText(std::size_t most, std::string* bytes) : most_(most), bytes_(bytes) {}

    /// Returns what is wrong with the line, or "".
    std::string read(std::string_view line) {
        std::string_view rest = line;
        std::string_view const first = takeWord(rest);
        if (first.empty()) {
            return "";
        }
        if (form_ == Form::unknown) {
            form_ = formOf(line);
        }
        if (first == "*" && form_ != Form::words && !row_.empty()) {
            isRepeated_ = true;
            return "";
        }
        Row const row = form_ == Form::colon     ? colonRow(line)
                        : form_ == Form::columns ? columnsRow(line)
                                                 : wordsRow(line);
        if (!row.bad.empty()) {
            return "'" + std::string(row.bad.substr(0, 20)) + "' where two hexadecimal digits a byte should be";
        }
        return append(row);
    }

    /// Returns what is missing at the end.
    std::string finish() const { return isRepeated_ ? "no offset behind the '*'" : ""; }

private:
    enum class Form { unknown, words, colon, columns };

    // The first line tells. Plain words cannot begin with an offset 0: no block has that size.
    static Form formOf(std::string_view line) {
        Row const row = colonRow(line);
        if (row.hasOffset && row.bad.empty()) {
            return Form::colon;
        }
        std::string_view const first = takeWord(line);
        bool const isZero = first.find_first_not_of('0') == std::string_view::npos;
        return isOffset(first) && (isZero || line.find_first_of("|>") != std::string_view::npos) ? Form::columns
                                                                                                 : Form::words;
    }

    static Row wordsRow(std::string_view line) {
        Row row;
        row.bad = appendBytes(line, row.bytes);
        return row;
    }

    static Row columnsRow(std::string_view line) {
        Row row;
        std::string_view const word = takeWord(line);
        if (!isOffset(word)) {
            row.bad = word;
            return row;
        }
        row.hasOffset = true;
        row.offset = hexNumber(word);
        row.bad = appendBytes(line.substr(0, line.find_first_of("|>")), row.bytes);
        return row;
    }

    // The offset is the first word of digits and a colon that bytes follow.
    static Row colonRow(std::string_view line) {
        Row row;
        row.bad = line;
        if (line.size() > colonRowMost) {
            return row;
        }
        for (std::size_t colon = line.find(':'); colon < colonColumnMost; colon = line.find(':', colon + 1)) {
            std::string_view const before = line.substr(0, colon);
            std::size_t const blank = before.find_last_of(blanks);
            std::string_view const word =
                withoutPrefix(blank == std::string_view::npos ? before : before.substr(blank + 1));
            if (!isOffset(word)) {
                continue;
            }
            std::string_view behind = line.substr(colon + 1);
            behind.remove_prefix(std::min(behind.find_first_not_of(blanks), behind.size()));
            Row found;
            found.hasOffset = true;
            found.offset = hexNumber(word);
            found.bad = appendBytes(behind.substr(0, behind.find("  ")), found.bytes);
            if (found.bad.empty()) {
                return found;
            }
            row = found;
        }
        return row;
    }

    std::string append(Row const& row) {
        if (row.hasOffset) {
            if (!hasBase_) {
                hasBase_ = true;
                base_ = row.offset;
            }
            std::uint64_t const at = row.offset - base_;
            if (isRepeated_ && at > bytes_->size() && at <= most_) {
                while (bytes_->size() < at) {
                    bytes_->append(row_, 0, static_cast<std::size_t>(at - bytes_->size()));
                }
            }
            isRepeated_ = false;
            if (at > most_) {
                return "offset 0x" + hexDigits(row.offset, 0) + " is too large";
            }
            if (at != bytes_->size()) {
                return "offset 0x" + hexDigits(row.offset, 0) + " where 0x" + hexDigits(base_ + bytes_->size(), 0) +
                       " should be";
            }
        }
        if (row.bytes.size() > most_ - bytes_->size()) {
            return "more than " + std::to_string(most_) + " bytes";
        }
        *bytes_ += row.bytes;
        row_ = row.bytes;
        return "";
    }

    std::size_t most_;
    std::string* bytes_;
    Form form_ = Form::unknown;
    bool hasBase_ = false;
    std::uint64_t base_ = 0;
    std::string row_;  // the last one
    bool isRepeated_ = false;
};

}  // namespace

bool isPlainText(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](unsigned char c) { return isPrintableAscii(c) || c == '\t' || c == '\n' || c == '\r'; });
}

std::string parseHexText(std::string_view text, std::size_t most, std::string* bytes) {
    HexText reader(most, bytes);
    std::size_t number = 0;
    while (!text.empty()) {
        ++number;
        std::size_t const end = std::min(text.find('\n'), text.size());
        if (std::string const wrong = reader.read(text.substr(0, end)); !wrong.empty()) {
            return "line " + std::to_string(number) + ": " + wrong;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    std::string const missing = reader.finish();
    return missing.empty() ? "" : "line " + std::to_string(number) + ": " + missing;
}

}  // namespace zelq
