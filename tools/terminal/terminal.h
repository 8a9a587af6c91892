#ifndef ZELQ_TOOLS_TERMINAL_TERMINAL_H
#define ZELQ_TOOLS_TERMINAL_TERMINAL_H

#include <sys/types.h>
#include <cstddef>
#include <string>

namespace zelq {

/// True when the descriptor is a terminal that understands control sequences.
bool isTerminal(int descriptor);

/// Columns of the terminal that standard output is; 80 when it is none, or does not know.
std::size_t terminalWidth();

/// How far a long command is, in one line on standard error: only on a terminal, only when the
/// command takes more than a second, and gone when it is done.
class Progress {
public:
    /// `what` is what the command does, "reading"; `total` how many bytes it has to go through.
    Progress(std::string what, off_t total);
    ~Progress() { hide(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// To be called each time that a piece of some size was read.
    void advance(off_t bytes);

    /// Takes the line away, for other output.
    void hide();

private:
    std::string what_;
    off_t total_;
    off_t done_ = 0;
    bool isWanted_;
    bool isShown_ = false;
    long long nextMs_;  // when the line is due
};

}  // namespace zelq

#endif
