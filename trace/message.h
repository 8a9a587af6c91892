#ifndef ZELQCOOD_TRACE_MESSAGE_H
#define ZELQCOOD_TRACE_MESSAGE_H

#include <cstdint>

#include "zelqplatform/zostring.h"

// How the library puts a trace text together. Texts of up to 127 characters allocate nothing, so
// that a message can be written at any point of an operation without making it fail.

/// The pieces one after the other: texts as they are, numbers in decimal.
template <class... Pieces>
ZoString message(Pieces const&... pieces) {
    ZoString text;
    ((text += pieces), ...);
    return text;
}

/// The number in hexadecimal, without leading zeros.
inline ZoString hexadecimal(unsigned long number) {
    ZoString digits(number);
    digits.d2x();
    return digits;
}

/// The number in hexadecimal, exactly `width` digits.
inline ZoString hexadecimal(unsigned long number, unsigned int width) {
    ZoString digits = hexadecimal(number);
    digits.rightJustify(width, '0');
    return digits;
}

/// An address as a number, to be rendered like any other.
inline unsigned long addressOf(void const* pointer) {
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(pointer));
}

#endif
