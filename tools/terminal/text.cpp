#include "tools/terminal/text.h"

#include <algorithm>

#include "common/calendar.h"

namespace zelq {
namespace {

unsigned codePoint(unsigned char const* bytes, std::size_t length) {
    if (length == 1) {
        return bytes[0];
    }
    unsigned value = bytes[0] & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        value = value << 6 | (bytes[i] & 0x3FU);
    }
    return value;
}

// The characters after the control characters cannot harm a terminal, but the reader: they make one
// line look like two, or text stand where it does not.
bool isDangerous(unsigned character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F) ||  // control characters
           character == 0x2028 || character == 0x2029 ||                    // line ends of another kind
           character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) ||  // writing direction
           (character >= 0x2066 && character <= 0x2069);
}

}  // namespace

std::string printable(std::string_view text, Tabs tabs) {
    std::string shown;
    shown.reserve(text.size());
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        if (text.size() - i >= 8 && isPrintableWord(textWord(bytes + i))) {
            shown.append(text, i, 8);
            i += 8;
            continue;
        }
        std::size_t const length = utf8Length(bytes + i, text.size() - i);
        unsigned const character = length == 0 ? bytes[i] : codePoint(bytes + i, length);
        bool const isKept = length > 0 && (!isDangerous(character) || (character == '\t' && tabs == Tabs::kept));
        if (isKept) {
            shown.append(text, i, length);
        } else {
            shown += length > 1 ? "\\u" + hexDigits(character, 4) : "\\x" + hexDigits(character, 2);
        }
        i += std::max<std::size_t>(length, 1);
    }
    return shown;
}

std::string padded(std::string shown, std::size_t width) {
    auto const isFirstByte = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    auto const used = static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), isFirstByte));
    shown.append(used < width ? width - used : 0, ' ');
    return shown;
}

std::string hexText(std::string_view bytes) {
    std::string text(2 * bytes.size(), '0');
    char* end = text.data();
    for (char const c : bytes) {
        end = putHexDigits(end, static_cast<unsigned char>(c), 2);
    }
    return text;
}

std::string hexRow(std::string_view row, std::size_t width) {
    std::string text;
    std::string characters;
    for (std::size_t i = 0; i < width; ++i) {
        text += i != 0 && i % 8 == 0 ? " " : "";
        text += i < row.size() ? hexText(row.substr(i, 1)) + " " : "   ";
        if (i < row.size()) {
            characters += isPrintableAscii(static_cast<unsigned char>(row[i])) ? row[i] : '.';
        }
    }
    return text + " |" + characters + "|";
}

std::string shownTime(long long timeUs) {
    std::string const text = shownExactTime(timeUs);
    return text.substr(0, text.find('.')) + "Z";
}

std::string shownExactTime(long long timeUs) {
    std::string text = storedTime(timeUs);
    text[text.find('T')] = ' ';
    return text;
}

}  // namespace zelq
