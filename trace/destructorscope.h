#ifndef ZELQCOOD_TRACE_DESTRUCTORSCOPE_H
#define ZELQCOOD_TRACE_DESTRUCTORSCOPE_H

#include <new>
#include <optional>

#include "trace/scope.h"

/// The trace scope of a destructor: without memory for its line there is no scope, since nothing may
/// leave a destructor.
class DestructorScope {
public:
    explicit DestructorScope(EntryLine const& entry) noexcept {
        try {
            scope_.emplace(entry);
        } catch (std::bad_alloc const&) {
        }
    }

private:
    std::optional<TraceScope> scope_;
};

#endif
