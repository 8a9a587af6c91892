// For builds that count what is run through: the counts of children, and of a viewer that a test ends
// by SIGTERM, go to their files too, which only the end by exit() does.

#include <sys/syscall.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>

extern "C" void _exit(int status) {
    static thread_local bool isExiting = false;
    if (!isExiting) {
        isExiting = true;
        std::exit(status);
    }
    for (;;) {
        syscall(SYS_exit_group, status);
    }
}

__attribute__((constructor)) static void countUntilSigterm() {
    std::signal(SIGTERM, [](int) { std::exit(0); });
}
