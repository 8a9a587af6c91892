#ifndef ZELQCOOD_TRACE_DESTRUCTORSCOPE_H
#define ZELQCOOD_TRACE_DESTRUCTORSCOPE_H

#include <new>
#include <optional>

#include "zelqcood/trace.h"

/// The trace scope of a destructor: without memory for its line there is no scope, since nothing may
/// leave a destructor.
class DestructorScope {
public:
    DestructorScope(char const* traceMask, char level, char const* name) noexcept {
        try {
            scope_.emplace(traceMask, level, name);
        } catch (std::bad_alloc const&) {
        }
    }

private:
    std::optional<XTrace> scope_;
};

#endif
