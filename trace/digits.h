#ifndef ZELQCOOD_TRACE_DIGITS_H
#define ZELQCOOD_TRACE_DIGITS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Numbers as digits, as many at a time as a register has bytes. Every block function traces several
// addresses, and digit by digit they would cost more than the lines that they stand in.

/// Bytes that a number's digits, or what is written in one go with them, take at most.
constexpr std::size_t digitsMost = 24;

namespace digits {

template <class Word>
constexpr Word every = static_cast<Word>(0x0101010101010101);

/// The next power of ten behind what fits into a register as decimal digits.
template <class Word>
constexpr Word decimalBase = sizeof(Word) == 8 ? 100000000 : 10000;

/// The four decimal digits of a number below 10^4 as values, the first one in the lowest byte. Two
/// such numbers in the two halves of a longer register are split at once.
template <class Word>
constexpr Word splitFours(Word fours) {
    // Halves of two digits, then single ones. Each step divides all parts at once by multiplying with
    // the divisor's inverse, which is exact for parts of that size.
    constexpr auto hundredsMask = static_cast<Word>(0x0000007F0000007F);
    constexpr auto tensMask = static_cast<Word>(0x000F000F000F000F);
    Word const hundreds = ((fours * 10486) >> 20) & hundredsMask;
    Word const pairs = ((fours - 100 * hundreds) << 16) | hundreds;
    Word const tens = ((pairs * 103) >> 10) & tensMask;
    return ((pairs - 10 * tens) << 8) | tens;
}

/// The decimal digits of a number below decimalBase, the first one in the lowest byte.
constexpr std::uint64_t decimalDigits(std::uint64_t number) {
    auto const low = static_cast<std::uint32_t>(number);
    return splitFours((std::uint64_t{low % 10000} << 32) | (low / 10000));
}
constexpr std::uint32_t decimalDigits(std::uint32_t number) {
    return splitFours(number);
}

/// Number of leading digits that are zero; all but the last one may be.
template <class Word>
unsigned leadingZeros(Word values) {
    Word const bounded = values | Word{1} << 8 * (sizeof(Word) - 1);
    return static_cast<unsigned>(sizeof(Word) == 8 ? __builtin_ctzll(bounded)
                                                   : __builtin_ctz(static_cast<unsigned>(bounded))) /
           8;
}

/// Writes the characters of a register but for the first ones.
template <class Word>
char* putCharacters(char* to, Word characters, unsigned skipped = 0) {
    characters >>= 8 * skipped;
    std::memcpy(to, &characters, sizeof characters);
    return to + sizeof characters - skipped;
}

template <class Word>
inline char* putFirst(char* to, Word number) {
    Word const values = decimalDigits(number);
    return putCharacters(to, values + every<Word> * '0', leadingZeros(values));
}

template <class Word>
inline char* putNext(char* to, Word number) {
    return putCharacters(to, decimalDigits(number) + every<Word> * '0');
}

/// A number of at least decimalBase, such as an address.
template <class Word>
__attribute__((noinline)) char* putLong(char* to, Word number) {
    constexpr Word base = decimalBase<Word>;
    Word const high = number / base;
    if (high < base) {
        to = putFirst(to, high);
    } else {
        to = putFirst(to, high / base);
        to = putNext(to, high % base);
    }
    return putNext(to, number % base);
}

/// The eight hexadecimal digits of a number as values, the first one in the lowest byte.
inline std::uint64_t eightHexadecimal(std::uint32_t number) {
    std::uint64_t const bytes = __builtin_bswap32(number);
    std::uint64_t const pairs = ((bytes & 0xFFFF0000) << 16) | (bytes & 0x0000FFFF);
    std::uint64_t const spread = ((pairs << 8) & 0x00FF000000FF0000) | (pairs & 0x000000FF000000FF);
    return ((spread & 0x000F000F000F000F) << 8) | ((spread >> 4) & 0x000F000F000F000F);
}

/// The same as characters.
inline std::uint64_t hexadecimalCharacters(std::uint64_t values) {
    std::uint64_t const letters = ((values + every<std::uint64_t> * 6) >> 4) & every<std::uint64_t>;
    return values + every<std::uint64_t> * '0' + letters * ('A' - '9' - 1);
}

}  // namespace digits

/// Writes the number's decimal digits and returns the end of them.
inline char* putDecimal(char* to, unsigned long number) {
    using Word = std::conditional_t<sizeof number == 8, std::uint64_t, std::uint32_t>;
    auto const word = static_cast<Word>(number);
    if (word < 10) {
        *to = static_cast<char>('0' + word);
        return to + 1;
    }
    return word < digits::decimalBase<Word> ? digits::putFirst(to, word) : digits::putLong(to, word);
}

/// Writes the number's last `width` hexadecimal digits, 16 at most; all of them, and no zero before
/// them, when `width` is 0. Returns the end.
inline char* putHexadecimal(char* to, std::uint64_t number, unsigned width) {
    using namespace digits;
    std::uint64_t const high = eightHexadecimal(static_cast<std::uint32_t>(number >> 32));
    std::uint64_t const low = eightHexadecimal(static_cast<std::uint32_t>(number));
    if (width == 0) {
        width = high != 0 ? 16 - leadingZeros(high) : 8 - leadingZeros(low);
    }
    if (width > 8) {
        to = putCharacters(to, hexadecimalCharacters(high), 16 - width);
        width = 8;
    }
    return putCharacters(to, hexadecimalCharacters(low), 8 - width);
}

#endif
