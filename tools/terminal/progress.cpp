#include "tools/terminal/progress.h"

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/systemcalls.h"
#include "tools/terminal/output.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

constexpr long long firstAfterMs = 1000;
constexpr long long thenEveryMs = 200;

long long nowMs() {
    return clockNs(CLOCK_MONOTONIC) / 1000000;
}

}  // namespace

Progress::Progress(std::string what, off_t total)
    : what_(std::move(what)), total_(total), isWanted_(isTerminal(STDERR_FILENO)), nextMs_(nowMs() + firstAfterMs) {}

void Progress::advance(off_t bytes) {
    done_ += bytes;
    if (isWanted_) {
        show();
    }
}

void Progress::show() {
    long long const now = nowMs();
    if (now < nextMs_) {
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
