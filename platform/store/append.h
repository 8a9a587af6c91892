#ifndef ZELQ_STORE_APPEND_H
#define ZELQ_STORE_APPEND_H

#include <cstddef>

namespace zelq {

/// What xlog_record() returns: an xlog_result, and the errno of the failing call.
struct StoreOutcome {
    int result;
    int crc;
};

/// Appends one line and returns when it is on disk, or after it has changed nothing.
///
/// `line` begins with a '\n' and ends with one; the first is written only where the file does not
/// end in one. Waits up to 10 seconds for other writers. Allocates nothing. May change errno.
StoreOutcome appendToStore(char const* line, std::size_t size) noexcept;

}  // namespace zelq

#endif
