#ifndef ZELQCOOD_TRACE_MESSAGE_H
#define ZELQCOOD_TRACE_MESSAGE_H

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "trace/digits.h"
#include "trace/scope.h"
#include "zelqplatform/trace_service.h"
#include "zelqplatform/zostring.h"

// How the library puts a trace line or a text together: from pieces one after the other, which are
// literals, zero-terminated texts, numbers (in decimal), and numbers in hexadecimal.

/// A number in hexadecimal: its last `width` digits, with zeros before a shorter one; or, without a
/// width, as many digits as it has.
struct Hexadecimal {
    unsigned long number;
    unsigned int width;
};

inline Hexadecimal hexadecimal(unsigned long number, unsigned int width = 0) {
    return {number, width};
}

/// An address as a number, to be rendered like any other.
inline unsigned long addressOf(void const* pointer) {
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(pointer));
}

namespace pieces {

// How many bytes a piece may write. A text is cut at the end of the line and counts as none.
template <class Piece>
constexpr std::size_t mostBytes = digitsMost;
template <std::size_t Size>
constexpr std::size_t mostBytes<char[Size]> = Size - 1;
template <>
inline constexpr std::size_t mostBytes<char const*> = 0;

template <std::size_t Size>
inline char* put(char* to, char*, char const (&literal)[Size]) {
    std::memcpy(to, literal, Size - 1);
    return to + Size - 1;
}

/// As much of the text as fits before `lineEnd`. A template, so that a literal is never taken for one.
/// Not inlined: few lines hold a text.
template <class Text, class = std::enable_if_t<std::is_same_v<Text, char const*>>, class = void>
__attribute__((noinline)) char* put(char* to, char* lineEnd, Text const& text) {
    std::size_t const length = to < lineEnd ? strnlen(text, static_cast<std::size_t>(lineEnd - to)) : 0;
    std::memcpy(to, text, length);
    return to + length;
}

template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
inline char* put(char* to, char*, Number const& number) {
    static_assert(sizeof(Number) > 1, "a character is no number");
    if (std::is_signed_v<Number> && number < 0) {
        *to = '-';
        return putDecimal(to + 1, 0 - static_cast<unsigned long>(number));
    }
    return putDecimal(to, static_cast<unsigned long>(number));
}

inline char* put(char* to, char*, Hexadecimal const& piece) {
    return putHexadecimal(to, piece.number, piece.width);
}

inline void append(ZoString& text, char const* piece) {
    text += piece;
}

template <class Piece, class = std::enable_if_t<!std::is_convertible_v<Piece, char const*>>>
void append(ZoString& text, Piece const& piece) {
    char digits[digitsMost + 1];
    *put(digits, nullptr, piece) = '\0';
    text += digits;
}

}  // namespace pieces

/// Writes one trace line, as XTrace::write does: at most 199 characters. Allocates nothing, so that a
/// line can be written at any point of an operation without making it fail; and puts each piece where
/// the trace service reads it, since a line is most of what many an operation costs.
template <class... Pieces>
void traceLine(TraceMask& mask, char level, Pieces const&... pieces) {
    constexpr std::size_t lineMost = 199;
    // What a number writes beyond the line's end is cut off behind it.
    alignas(16) char line[lineMost + 1 + (pieces::mostBytes<Pieces> + ...)];
    std::memcpy(line, mask, sizeof mask);
    line[sizeof mask - 1] = level;
    line[sizeof mask] = ':';
    line[sizeof mask + 1] = ' ';
    char* end = line + sizeof mask + 2;
    ((end = pieces::put(end, line + lineMost, pieces)), ...);
    *end = '\0';
    line[lineMost] = '\0';
    xtr_trace_cb(0, line);
}

/// The pieces as a text of any length.
template <class... Pieces>
ZoString message(Pieces const&... pieces) {
    ZoString text;
    (pieces::append(text, pieces), ...);
    return text;
}

#endif
