#include "store/textencoding.h"

namespace zelq {

bool isUtf8(unsigned char const* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size;) {
        std::size_t const length = utf8Length(bytes + i, size - i);
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

void appendReplacingInvalid(unsigned char const* bytes, std::size_t size, std::string& to) {
    for (std::size_t i = 0; i < size;) {
        std::size_t const length = utf8Length(bytes + i, size - i);
        if (length == 0) {
            to += "\xEF\xBF\xBD";
            ++i;
        } else {
            to.append(reinterpret_cast<char const*>(bytes) + i, length);
            i += length;
        }
    }
}

void appendBase64(unsigned char const* bytes, std::size_t size, std::string& to) {
    static char const digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t const begin = to.size();
    to.resize(begin + (size + 2) / 3 * 4, '=');
    char* next = &to[begin];
    for (; size >= 3; size -= 3, bytes += 3, next += 4) {
        unsigned const group = static_cast<unsigned>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]);
        next[0] = digits[group >> 18];
        next[1] = digits[group >> 12 & 63];
        next[2] = digits[group >> 6 & 63];
        next[3] = digits[group & 63];
    }
    if (size > 0) {
        unsigned const group = static_cast<unsigned>(bytes[0] << 16 | (size == 2 ? bytes[1] << 8 : 0));
        next[0] = digits[group >> 18];
        next[1] = digits[group >> 12 & 63];
        next[2] = size == 2 ? digits[group >> 6 & 63] : '=';
    }
}

}  // namespace zelq
