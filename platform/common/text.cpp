#include "common/text.h"

#include <cstdio>
#include <stdexcept>

namespace zelq {
namespace {

unsigned char const* bytesOf(std::string_view text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

}  // namespace

bool isUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const length = utf8Length(bytesOf(text) + i, text.size() - i);
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

void appendReplacingInvalid(std::string_view text, std::string& to) {
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const length = utf8Length(bytesOf(text) + i, text.size() - i);
        if (length == 0) {
            to += "\xEF\xBF\xBD";
            ++i;
        } else {
            to.append(text, i, length);
            i += length;
        }
    }
}

void appendBase64(std::string_view bytes, std::string& to) {
    static char const digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    unsigned char const* from = bytesOf(bytes);
    std::size_t size = bytes.size();
    std::size_t const begin = to.size();
    if (size > to.max_size() / 4 * 3) {
        throw std::length_error("too many bytes for base64");
    }
    to.append((size + 2) / 3 * 4, '=');
    char* next = &to[begin];
    for (; size >= 3; size -= 3, from += 3, next += 4) {
        unsigned const group = static_cast<unsigned>(from[0] << 16 | from[1] << 8 | from[2]);
        next[0] = digits[group >> 18];
        next[1] = digits[group >> 12 & 63];
        next[2] = digits[group >> 6 & 63];
        next[3] = digits[group & 63];
    }
    if (size > 0) {
        unsigned const group = static_cast<unsigned>(from[0] << 16 | (size == 2 ? from[1] << 8 : 0));
        next[0] = digits[group >> 18];
        next[1] = digits[group >> 12 & 63];
        next[2] = size == 2 ? digits[group >> 6 & 63] : '=';
    }
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    for (int padding = 0; padding < 2 && !text.empty() && text.back() == '='; ++padding) {
        text.remove_suffix(1);
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 3);
    unsigned group = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        int const digit = base64Digit(text[i]);
        if (digit < 0) {
            return std::nullopt;
        }
        group = group << 6 | static_cast<unsigned>(digit);
        if (i % 4 != 0) {  // the second to fourth digit each complete a byte
            bytes += static_cast<char>(group >> (6 - i % 4 * 2) & 0xFF);
        }
    }
    return bytes;
}

std::string hexDigits(std::uint64_t number, int digits) {
    while (digits < 16 && number >> 4 * digits != 0) {
        ++digits;
    }
    digits = digits < 1 ? 1 : digits;
    std::string text(static_cast<std::size_t>(digits), '0');
    putHexDigits(&text[0], number, digits);
    return text;
}

std::string counted(std::uint64_t number, char const* singular) {
    return std::to_string(number) + " " + singular + (number == 1 ? "" : "s");
}

std::string byteCount(std::uint64_t number) {
    if (number < 1024) {
        return counted(number, "byte");
    }
    double value = static_cast<double>(number);
    char const* unit = nullptr;
    for (char const* const next : {"KiB", "MiB", "GiB"}) {
        if (unit == nullptr || value >= 1024) {
            value /= 1024;
            unit = next;
        }
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, unit);
    return text;
}

}  // namespace zelq
