#include "tools/terminal/output.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "common/systemcalls.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

constexpr std::size_t flushAt = 64 * 1024;

bool wantsColour(ColourMode mode) {
    if (mode != ColourMode::automatic) {
        return mode == ColourMode::always;
    }
    char const* const refused = std::getenv("NO_COLOR");
    return (refused == nullptr || refused[0] == '\0') && isTerminal(STDOUT_FILENO);
}

char const* sequence(Style style) {
    switch (style) {
    case Style::heading: return "\x1b[1m";
    case Style::alarm: return "\x1b[1;31m";
    case Style::faint: return "\x1b[2m";
    case Style::plain: break;
    }
    return "";
}

std::string wantedPager() {
    for (char const* const name : {"ZELQ_PAGER", "PAGER"}) {
        if (char const* const value = std::getenv(name); value != nullptr) {
            return value;
        }
    }
    return "if command -v less >/dev/null; then exec less; else exec cat; fi";
}

void setKeyboardSignals(void (*handler)(int)) {
    std::signal(SIGINT, handler);
    std::signal(SIGQUIT, handler);
}

}  // namespace

Output::Output(ColourMode mode, Paging paging) : coloured_(wantsColour(mode)), paging_(paging) {}

// An exception's way out: there may be no memory for more than to wait for the pager's end.
Output::~Output() {
    if (pager_ != nullptr) {
        pclose(pager_);
    }
}

void Output::put(std::string_view shown, Style style) {
    bool const isStyled = coloured_ && style != Style::plain;
    raw(isStyled ? sequence(style) : "");
    raw(shown);
    raw(isStyled ? "\x1b[0m" : "");
}

void Output::raw(std::string_view bytes) {
    pending_ += bytes;
    if (pending_.size() >= flushAt) {
        flush();
    }
}

void Output::openPager() {
    std::string const command = wantedPager();
    if (command.empty() || command == "cat" || !isTerminal(STDOUT_FILENO)) {
        return;
    }
    // Colours as they are, and no screen of its own for what fits on the one there is.
    setenv("LESS", "FRX", 0);
    setenv("LV", "-c", 0);
    // The pager has signals as a shell gives them to it: a pipe that it writes to is its own affair.
    setKeyboardSignals(SIG_DFL);
    auto* const onPipe = std::signal(SIGPIPE, SIG_DFL);
    pager_ = popen(command.c_str(), "we");
    std::signal(SIGPIPE, onPipe);
    if (pager_ != nullptr) {
        // Who interrupts a pager means the pager, which has the terminal in its hands.
        setKeyboardSignals(SIG_IGN);
    }
}

// write(2) rather than a stream: a failure is known with its errno, and at the line it came with.
bool Output::flush() {
    if (wantsPager_ && !pending_.empty()) {
        wantsPager_ = false;
        openPager();
    }
    std::size_t done = 0;
    int const file = pager_ != nullptr ? fileno(pager_) : STDOUT_FILENO;
    while (failure_ == 0 && done < pending_.size()) {
        ssize_t const written =
            uninterrupted([&] { return write(file, pending_.data() + done, pending_.size() - done); });
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else {
            failure_ = errno;
        }
    }
    pending_.clear();
    return failure_ == 0;
}

void Output::finish() {
    flush();
    if (pager_ == nullptr) {
        return;
    }
    constexpr int cannotRun = 127;  // the status with which a shell says it
    int const status = pclose(pager_);
    pager_ = nullptr;
    setKeyboardSignals(SIG_DFL);
    if (WIFEXITED(status) && WEXITSTATUS(status) == cannotRun) {
        complain("the pager cannot be run; see ZELQ_PAGER and PAGER, or use --no-pager");
        failure_ = EPIPE;
    } else if (failure_ == EPIPE) {
        failure_ = 0;
    }
}

// A reader who has seen enough and closed the pipe needs no message, and a pager that cannot be run
// had one.
void Output::close() {
    finish();
    if (failure_ != 0) {
        throw Failure{exitFailed, failure_ == EPIPE
                                      ? ""
                                      : std::string("cannot write to standard output: ") + std::strerror(failure_)};
    }
}

bool Output::waitWithReader() const {
    // Short enough to look immediate, long enough to cost nothing.
    constexpr int pauseMs = 100;
    pollfd reader = {STDOUT_FILENO, 0, 0};
    return poll(&reader, 1, pauseMs) <= 0 || (reader.revents & POLLERR) == 0;
}

void complain(std::string_view message) {
    std::string const line = "zelq: " + printable(message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace zelq
