#ifndef ZELQ_TOOLS_TERMINAL_PAGER_H
#define ZELQ_TOOLS_TERMINAL_PAGER_H

#include <sys/types.h>

#include "common/systemcalls.h"

namespace zelq {

/// A program that shows long output a screen at a time: $ZELQ_PAGER, else $PAGER, else less. An
/// empty one, and "cat", mean none.
class Pager {
public:
    Pager() = default;
    ~Pager() { finish(); }
    Pager(Pager const&) = delete;
    Pager& operator=(Pager const&) = delete;

    /// Starts it, when standard output is a terminal. False when the output goes there directly.
    bool start();

    bool isRunning() const { return process_ > 0; }

    /// Where it reads what it shows.
    int input() const { return input_.get(); }

    /// Ends its input and waits until its user has left it. False when it could not be run.
    bool finish();

private:
    Descriptor input_;
    pid_t process_ = 0;
};

}  // namespace zelq

#endif
