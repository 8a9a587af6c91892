#ifndef ZELQPLATFORM_ZOSTRING_H
#define ZELQPLATFORM_ZOSTRING_H

#include "zelqplatform/zobuffer.h"

/// Zero-terminated text with the operations that messages are built from.
///
/// Texts of up to 127 characters live inside the object: building a trace line of that length
/// neither allocates nor fails. For longer ones an allocation may fail with std::bad_alloc; the
/// string is then as it was before. A null `char const*` counts as the empty text.
class ZELQ_API ZoString : public ZoBase {
public:
    ZoString() noexcept = default;
    ZoString(char const* text);
    /// `count` characters from `text`, which needs no zero byte.
    ZoString(char const* text, unsigned long count) : buffer_(text, count) {}

    /// The number in decimal digits, with a leading "-" when negative.
    ZoString(int number);
    ZoString(unsigned int number);
    ZoString(unsigned long number);
    ZoString(unsigned short number);

    ZoString& operator=(char const* text);

    ZoString& operator+=(char const* text);
    ZoString& operator+=(ZoString const& other);

    /// The characters, owned by the string and valid until it changes.
    operator char*() const noexcept { return buffer_.contents(); }

    /// Number of characters before the closing zero byte.
    unsigned long length() const noexcept { return buffer_.length(); }

    /// Turns decimal digits into upper-case hexadecimal ones without leading zeros ("26" becomes
    /// "1A", "0" stays "0"). A number below zero becomes its 32-bit two's complement ("-1" becomes
    /// "FFFFFFFF"). Any other text, or a number beyond 64 bits, stays as it is.
    ZoString& d2x();

    /// Makes the text exactly `width` characters long: filled with `fill` on the left when it is
    /// shorter, its rightmost characters when it is longer.
    ZoString& rightJustify(unsigned int width, char fill);

    bool operator==(char const* text) const noexcept;
    bool operator!=(char const* text) const noexcept { return !(*this == text); }
    bool operator==(ZoString const& other) const noexcept { return *this == other.text(); }
    bool operator!=(ZoString const& other) const noexcept { return *this != other.text(); }

    // A plain char* would otherwise be as near to the built-in comparison of addresses.
    bool operator==(char* other) const noexcept { return *this == static_cast<char const*>(other); }
    bool operator!=(char* other) const noexcept { return *this != static_cast<char const*>(other); }

private:
    char const* text() const noexcept { return buffer_.contents(); }

    ZoBuffer buffer_;
};

ZELQ_API ZoString operator+(ZoString const& left, ZoString const& right);
ZELQ_API ZoString operator+(ZoString const& left, char const* right);
ZELQ_API ZoString operator+(char const* left, ZoString const& right);

// A temporary on the left is appended to in place, so that a chain of "+" copies nothing twice.
inline ZoString operator+(ZoString&& left, ZoString const& right) {
    return static_cast<ZoString&&>(left += right);
}
inline ZoString operator+(ZoString&& left, char const* right) {
    return static_cast<ZoString&&>(left += right);
}

#endif
