#ifndef ZELQ_TOOLS_TERMINAL_TERMINAL_H
#define ZELQ_TOOLS_TERMINAL_TERMINAL_H

#include <cstddef>

namespace zelq {

/// True when the descriptor is a terminal that understands control sequences.
bool isTerminal(int descriptor);

/// Columns of the terminal that standard output is; 80 when it is none, or does not know.
std::size_t terminalWidth();

}  // namespace zelq

#endif
