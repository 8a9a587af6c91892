#ifndef ZELQ_UTF8_H
#define ZELQ_UTF8_H

#include <cstddef>

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

}  // namespace zelq

#endif
