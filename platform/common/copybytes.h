#ifndef ZELQ_COPYBYTES_H
#define ZELQ_COPYBYTES_H

#include <cstddef>
#include <cstring>

namespace zelq {

/// Copies some ten to some hundred bytes. A compiler that knows a bound of their number copies by string
/// instructions, whose start takes longer than the C library needs for the whole copy: so it is not to know.
inline void copyBytes(void* to, void const* from, std::size_t count) {
    asm("" : "+r"(count));
    std::memcpy(to, from, count);
}

}  // namespace zelq

#endif
