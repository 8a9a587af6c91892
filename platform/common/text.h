#ifndef ZELQ_TEXT_H
#define ZELQ_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

// What is text and what is not, and bytes as text. By hand where a library was slower: every byte of a
// record, a trace line and a snapshot goes through here.

namespace zelq {

/// Length in bytes of the UTF-8 character that `bytes` begins with, 1 to 4; 0 when there is none.
/// Strict: overlong forms, surrogates, values beyond U+10FFFF and cut-off characters are none.
/// `available` is the number of bytes that may be read and at least 1.
inline std::size_t utf8Length(unsigned char const* bytes, std::size_t available) {
    unsigned char const first = bytes[0];
    if (first < 0x80) {
        return 1;
    }
    // The second byte's range is what keeps overlong forms, surrogates and too large values out.
    std::size_t length = 0;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        lowest = first == 0xE0 ? 0xA0 : 0x80;
        highest = first == 0xED ? 0x9F : 0xBF;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        lowest = first == 0xF0 ? 0x90 : 0x80;
        highest = first == 0xF4 ? 0x8F : 0xBF;
    }
    if (length == 0 || length > available || bytes[1] < lowest || bytes[1] > highest) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if ((bytes[i] & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

/// True for a control character, those from U+0080 to U+009F among them: it can steer a terminal.
/// `length` is what utf8Length() returned, not 0.
inline bool isControl(unsigned char const* character, std::size_t length) {
    unsigned char const first = character[0];
    return length == 1 ? first < 0x20 || first == 0x7F : length == 2 && first == 0xC2 && character[1] < 0xA0;
}

/// True for U+0020 to U+007E.
inline bool isPrintableAscii(unsigned char byte) {
    return byte >= 0x20 && byte < 0x7F;
}

/// The eight bytes at `bytes`, for looking at a long text a word at a time. Which byte comes first
/// does not matter for the questions below.
inline unsigned long long textWord(void const* bytes) {
    unsigned long long word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

constexpr unsigned long long textWordOnes = 0x0101010101010101ULL;
constexpr unsigned long long textWordHighs = textWordOnes * 0x80;

/// True when all bytes of the word are printable ASCII.
inline bool isPrintableWord(unsigned long long word) {
    // In a word without high bits, adding 0x60 sets the high bit of every byte from 0x20 on, and
    // adding 1 that of 0x7F alone; no sum carries into the next byte.
    return (word & textWordHighs) == 0 && ((word + textWordOnes * 0x60) & textWordHighs) == textWordHighs &&
           ((word + textWordOnes) & textWordHighs) == 0;
}

/// True when the word, of which isPrintableWord() is true, contains the byte `c`.
inline bool containsByte(unsigned long long word, unsigned char c) {
    // What equals c becomes 0, to which alone adding 0x7F gives no high bit.
    return (((word ^ textWordOnes * c) + textWordOnes * 0x7F) & textWordHighs) != textWordHighs;
}

/// True when all bytes belong to valid UTF-8 characters.
bool isUtf8(std::string_view text);

/// Appends the text, each byte that is not valid UTF-8 replaced by U+FFFD.
void appendReplacingInvalid(std::string_view text, std::string& to);

/// Appends the bytes in base64, with padding and without line ends. Throws std::length_error when a string
/// cannot be as long.
void appendBase64(std::string_view bytes, std::string& to);

/// The bytes of a base64 text. None when it is not one: padding has to be there, and only at the end.
std::optional<std::string> decodeBase64(std::string_view text);

/// Writes the lowest `digits` hexadecimal digits of a number, in lower case, and returns where they end.
template <typename Number>
char* putHexDigits(char* to, Number number, int digits) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        *to++ = "0123456789abcdef"[number >> shift & 0xF];
    }
    return to;
}

/// A number in at least `digits` hexadecimal digits, in lower case.
std::string hexDigits(std::uint64_t number, int digits);

/// "1 line", "2 lines".
std::string counted(std::uint64_t number, char const* singular);

/// "512 bytes", "1.5 MiB".
std::string byteCount(std::uint64_t number);

}  // namespace zelq

#endif
