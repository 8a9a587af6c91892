#include "zelqplatform/zostring.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <system_error>

namespace {

std::size_t lengthOf(char const* text) {
    return text == nullptr ? 0 : std::strlen(text);
}

template <class Number>
ZoBuffer decimal(Number number) {
    char digits[std::numeric_limits<Number>::digits10 + 2];  // one more digit, and the sign
    char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    return ZoBuffer(digits, static_cast<std::size_t>(end - digits));
}

}  // namespace

ZoString::ZoString(char const* text) : buffer_(text, lengthOf(text)) {}

ZoString::ZoString(int number) : buffer_(decimal(number)) {}

ZoString::ZoString(unsigned int number) : buffer_(decimal(number)) {}

ZoString::ZoString(unsigned long number) : buffer_(decimal(number)) {}

ZoString::ZoString(unsigned short number) : buffer_(decimal(number)) {}

ZoString& ZoString::operator=(char const* text) {
    buffer_.assign(text, lengthOf(text));
    return *this;
}

ZoString& ZoString::operator+=(char const* text) {
    buffer_.append(text, lengthOf(text));
    return *this;
}

ZoString& ZoString::operator+=(ZoString const& other) {
    buffer_.append(other.buffer_.contents(), other.buffer_.length());
    return *this;
}

ZoString& ZoString::d2x() {
    char const* digits = buffer_.contents();
    char const* const end = digits + buffer_.length();
    bool const negative = *digits == '-';
    if (negative) {
        ++digits;
    }
    std::uint64_t value = 0;
    auto const read = std::from_chars(digits, end, value);
    if (read.ec != std::errc() || read.ptr != end) {
        return *this;
    }
    if (negative) {
        value = static_cast<std::uint32_t>(0 - value);
    }
    char hexadecimal[16];
    char* first = hexadecimal + sizeof hexadecimal;
    do {
        *--first = "0123456789ABCDEF"[value & 0xF];
        value >>= 4;
    } while (value != 0);
    buffer_.assign(first, static_cast<std::size_t>(hexadecimal + sizeof hexadecimal - first));
    return *this;
}

ZoString& ZoString::rightJustify(unsigned int width, char fill) {
    std::size_t const length = buffer_.length();
    if (length >= width) {
        buffer_.assign(buffer_.contents() + (length - width), width);
        return *this;
    }
    ZoBuffer justified;
    for (std::size_t missing = width - length; missing != 0; --missing) {
        justified.append(&fill, 1);
    }
    justified.append(buffer_.contents(), length);
    buffer_ = static_cast<ZoBuffer&&>(justified);
    return *this;
}

bool ZoString::operator==(char const* text) const noexcept {
    return std::strcmp(buffer_.contents(), text == nullptr ? "" : text) == 0;
}

ZoString operator+(ZoString const& left, ZoString const& right) {
    ZoString sum(left);
    sum += right;
    return sum;
}

ZoString operator+(ZoString const& left, char const* right) {
    ZoString sum(left);
    sum += right;
    return sum;
}

ZoString operator+(char const* left, ZoString const& right) {
    ZoString sum(left);
    sum += right;
    return sum;
}
