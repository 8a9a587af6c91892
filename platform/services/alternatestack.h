#ifndef ZELQ_ALTERNATESTACK_H
#define ZELQ_ALTERNATESTACK_H

#include <cstddef>

namespace zelq {

/// What exits have to run on. Only the pages that are used cost memory.
constexpr std::size_t alternateStackSize = 256U << 10;

/// Gives the calling thread an alternate signal stack with a guard page below it, unless it has one.
/// Returns 0 or an errno. The stack lives as long as the thread, in the main thread as long as the
/// process: static destructors may take program checks too.
int makeAlternateStack();

/// Takes the calling thread's stack away if it is the one made here, in force and not in use.
void releaseAlternateStack();

}  // namespace zelq

#endif
