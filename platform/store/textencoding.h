#ifndef ZELQ_STORE_TEXTENCODING_H
#define ZELQ_STORE_TEXTENCODING_H

#include <cstddef>
#include <cstring>
#include <string>

#include "common/utf8.h"

namespace zelq {

/// The eight bytes at `bytes`, for looking at a long text a word at a time. Which byte comes first
/// does not matter for the questions below.
inline unsigned long long textWord(unsigned char const* bytes) {
    unsigned long long word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

constexpr unsigned long long textWordOnes = 0x0101010101010101ULL;
constexpr unsigned long long textWordHighs = textWordOnes * 0x80;

/// True when all bytes of the word are printable ASCII, U+0020 to U+007E.
inline bool isPrintableAscii(unsigned long long word) {
    // In a word without high bits, adding 0x60 sets the high bit of every byte from 0x20 on, and
    // adding 1 that of 0x7F alone; no sum carries into the next byte.
    return (word & textWordHighs) == 0 && ((word + textWordOnes * 0x60) & textWordHighs) == textWordHighs &&
           ((word + textWordOnes) & textWordHighs) == 0;
}

/// True when the word, of which isPrintableAscii() is true, contains the byte `c`.
inline bool containsByte(unsigned long long word, unsigned char c) {
    // What equals c becomes 0, to which alone adding 0x7F gives no high bit.
    return (((word ^ textWordOnes * c) + textWordOnes * 0x7F) & textWordHighs) != textWordHighs;
}

/// True when all bytes belong to valid UTF-8 characters.
bool isUtf8(unsigned char const* bytes, std::size_t size);

/// Appends the text, each byte that is not valid UTF-8 replaced by U+FFFD.
void appendReplacingInvalid(unsigned char const* bytes, std::size_t size, std::string& to);

/// Appends the bytes in base64, with padding and without line ends.
void appendBase64(unsigned char const* bytes, std::size_t size, std::string& to);

}  // namespace zelq

#endif
