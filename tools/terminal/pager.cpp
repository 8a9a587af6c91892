#include "tools/terminal/pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <string>

#include "common/systemcalls.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

constexpr int cannotRun = 127;  // the status with which a shell says it

std::string wantedPager() {
    for (char const* const name : {"ZELQ_PAGER", "PAGER"}) {
        if (char const* const value = std::getenv(name); value != nullptr) {
            return value;
        }
    }
    return "if command -v less >/dev/null; then exec less; else exec cat; fi";
}

[[noreturn]] void runPager(std::string const& command, int input) {
    dup2(input, STDIN_FILENO);
    // The keyboard's signals are the pager's, and a pipe that it writes to is its own affair.
    for (int const number : {SIGINT, SIGQUIT, SIGPIPE}) {
        std::signal(number, SIG_DFL);
    }
    // Colours as they are, and no screen of its own for what fits on the one there is.
    setenv("LESS", "FRX", 0);
    setenv("LV", "-c", 0);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(cannotRun);
}

}  // namespace

bool Pager::start() {
    std::string const command = wantedPager();
    if (command.empty() || command == "cat" || !isTerminal(STDOUT_FILENO)) {
        return false;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    Descriptor const readEnd(ends[0]);
    input_.reset(ends[1]);
    process_ = fork();
    if (process_ == 0) {
        runPager(command, readEnd.get());
    }
    if (process_ < 0) {
        input_.reset(-1);
        return false;
    }
    // Who interrupts a pager means the pager, which has the terminal in its hands.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    return true;
}

bool Pager::finish() {
    if (!isRunning()) {
        return true;
    }
    input_.reset(-1);
    int status = 0;
    uninterrupted([&] { return waitpid(process_, &status, 0); });
    process_ = 0;
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGQUIT, SIG_DFL);
    return !WIFEXITED(status) || WEXITSTATUS(status) != cannotRun;
}

}  // namespace zelq
