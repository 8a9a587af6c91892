#ifndef ZELQ_UNINTERRUPTED_H
#define ZELQ_UNINTERRUPTED_H

#include <cerrno>

namespace zelq {

/// Makes a system call again for as long as a signal's handler interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace zelq

#endif
