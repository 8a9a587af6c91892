#ifndef ZELQCOOD_TESTS_HEX_H
#define ZELQCOOD_TESTS_HEX_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

// Blocks as text that can be reviewed: two hexadecimal digits a byte; blanks and commas do not count.

using Block = std::unique_ptr<unsigned char[]>;
using Bytes = std::vector<unsigned char>;

inline Bytes fromHex(std::string const& text) {
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (c != ' ' && c != ',' && c != '\n') {
            digits += c;
        }
    }
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline std::string toHex(unsigned char const* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", bytes[i]);
        text += digits;
    }
    return text.empty() ? text : text.substr(0, text.size() - 1);
}

inline std::uint32_t sizeOf(unsigned char const* block) {
    std::uint32_t size = 0;
    std::memcpy(&size, block, sizeof size);
    return size;
}

inline std::string toHex(Block const& block) {
    return toHex(block.get(), sizeOf(block.get()));
}

inline Bytes toBytes(Block const& block) {
    return Bytes(block.get(), block.get() + sizeOf(block.get()));
}

// Blocks whose sizes are filled in, so that the others show what is odd about them: ".." stands for
// the number of bytes from its place to the end of the text.
inline Bytes withSizes(std::string text) {
    for (std::size_t at = text.rfind(".."); at != std::string::npos; at = text.rfind("..")) {
        std::size_t const size = fromHex(text.substr(at + 2)).size() + 4;
        unsigned char const bytes[] = {static_cast<unsigned char>(size), static_cast<unsigned char>(size >> 8), 0, 0};
        text.replace(at, 2, toHex(bytes, 4));
    }
    return fromHex(text);
}

#endif
