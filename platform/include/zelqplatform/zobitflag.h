#ifndef ZELQPLATFORM_ZOBITFLAG_H
#define ZELQPLATFORM_ZOBITFLAG_H

#include <cstdint>

#include "zelqplatform/zobase.h"

/// Two 32-bit words of flags, in 64-bit builds too. A literal type, so that flag constants
/// need no code at load time. No operation fails.
class ZELQ_API ZoBitFlag : public ZoBase {
public:
    /// Keeps the low 32 bits of each word.
    constexpr ZoBitFlag(unsigned long value, unsigned long extended)
        : value_(static_cast<std::uint32_t>(value)), extended_(static_cast<std::uint32_t>(extended)) {}

    /// The value word, 0 to 0xFFFFFFFF.
    constexpr unsigned long asUnsignedLong() const { return value_; }

    /// The extended word, 0 to 0xFFFFFFFF.
    constexpr unsigned long asExtendedUnsignedLong() const { return extended_; }

    /// Replaces both words by the low 32 bits of the arguments.
    ZoBitFlag& setValue(unsigned long value, unsigned long extended) {
        value_ = static_cast<std::uint32_t>(value);
        extended_ = static_cast<std::uint32_t>(extended);
        return *this;
    }

private:
    std::uint32_t value_;
    std::uint32_t extended_;
};

#endif
