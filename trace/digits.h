#ifndef ZELQCOOD_TRACE_DIGITS_H
#define ZELQCOOD_TRACE_DIGITS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// Numbers as digits, eight at a time: a byte for each in one register. Every block function traces
// several addresses, and digit by digit they would cost more than the lines that they stand in.

/// Bytes that a number's digits, or what is written in one go with them, take at most.
constexpr std::size_t digitsMost = 24;

namespace digits {

constexpr std::uint32_t tenTo8 = 100000000;
constexpr std::uint64_t zeros = 0x3030303030303030;

/// The eight decimal digits of a number below 10^8 as values, the first one in the lowest byte.
inline std::uint64_t eightDecimal(std::uint32_t number) {
    // Halves of four digits, then quarters of two, then single ones. Each step divides all parts at
    // once by multiplying with the divisor's inverse, which is exact for parts of that size.
    std::uint64_t const halves = (std::uint64_t{number % 10000} << 32) | (number / 10000);
    std::uint64_t const hundreds = ((halves * 10486) >> 20) & 0x0000007F0000007F;
    std::uint64_t const quarters = ((halves - 100 * hundreds) << 16) | hundreds;
    std::uint64_t const tens = ((quarters * 103) >> 10) & 0x000F000F000F000F;
    return ((quarters - 10 * tens) << 8) | tens;
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
    std::uint64_t const letters = ((values + 0x0606060606060606) >> 4) & 0x0101010101010101;
    return values + zeros + letters * ('A' - '9' - 1);
}

/// Number of leading digits that are zero; all but the last one may be.
inline unsigned leadingZeros(std::uint64_t values) {
    return static_cast<unsigned>(__builtin_ctzll(values | std::uint64_t{1} << 56)) / 8;
}

inline char* putEight(char* to, std::uint64_t characters, unsigned skipped = 0) {
    characters >>= 8 * skipped;
    std::memcpy(to, &characters, sizeof characters);
    return to + sizeof characters - skipped;
}

}  // namespace digits

/// Writes the number's decimal digits and returns the end of them.
inline char* putDecimal(char* to, std::uint64_t number) {
    using namespace digits;
    if (number < 10) {
        *to = static_cast<char>('0' + number);
        return to + 1;
    }
    if (number >= tenTo8) {
        std::uint64_t const high = number / tenTo8;
        auto const low = static_cast<std::uint32_t>(number % tenTo8);
        if (high >= tenTo8) {
            to = putDecimal(to, high / tenTo8);
            to = putEight(to, eightDecimal(static_cast<std::uint32_t>(high % tenTo8)) + zeros);
        } else {
            std::uint64_t const values = eightDecimal(static_cast<std::uint32_t>(high));
            to = putEight(to, values + zeros, leadingZeros(values));
        }
        return putEight(to, eightDecimal(low) + zeros);
    }
    std::uint64_t const values = eightDecimal(static_cast<std::uint32_t>(number));
    return putEight(to, values + zeros, leadingZeros(values));
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
        to = putEight(to, hexadecimalCharacters(high), 16 - width);
        width = 8;
    }
    return putEight(to, hexadecimalCharacters(low), 8 - width);
}

#endif
