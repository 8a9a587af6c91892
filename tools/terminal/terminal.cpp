#include "tools/terminal/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "common/systemcalls.h"
#include "tools/terminal/text.h"

namespace zelq {
namespace {

constexpr long long firstAfterMs = 1000;
constexpr long long thenEveryMs = 200;

long long nowMs() {
    return clockNs(CLOCK_MONOTONIC) / 1000000;
}

}  // namespace

bool isTerminal(int descriptor) {
    char const* const kind = std::getenv("TERM");
    return isatty(descriptor) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

std::size_t terminalWidth() {
    winsize size = {};
    bool const isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : 80;
}

Progress::Progress(std::string what, off_t total)
    : what_(std::move(what)), total_(total), isWanted_(isTerminal(STDERR_FILENO)), nextMs_(nowMs() + firstAfterMs) {}

void Progress::advance(off_t bytes) {
    done_ += bytes;
    long long const now = isWanted_ ? nowMs() : 0;
    if (!isWanted_ || now < nextMs_) {
        return;
    }
    nextMs_ = now + thenEveryMs;
    off_t const percent = total_ > 0 ? std::min<off_t>(done_ * 100 / total_, 100) : 100;
    std::fprintf(stderr, "\r%s, %d %% of %s\x1b[K", what_.c_str(), static_cast<int>(percent),
                 byteCount(static_cast<std::uint64_t>(total_)).c_str());
    isShown_ = true;
}

void Progress::hide() {
    if (isShown_) {
        std::fputs("\r\x1b[K", stderr);
        isShown_ = false;
    }
}

}  // namespace zelq
