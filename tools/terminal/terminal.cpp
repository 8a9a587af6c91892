#include "tools/terminal/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <cstdlib>
#include <string_view>

namespace zelq {

bool isTerminal(int descriptor) {
    char const* const kind = std::getenv("TERM");
    return isatty(descriptor) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

std::size_t terminalWidth() {
    winsize size = {};
    bool const isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : 80;
}

}  // namespace zelq
