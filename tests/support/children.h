#ifndef ZELQ_TEST_CHILDREN_H
#define ZELQ_TEST_CHILDREN_H

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <functional>

// What a test does in other processes, which end with it at the latest.

/// The child ends with status 1 when it has found a failure.
inline pid_t start(std::function<void()> const& run) {
    pid_t const child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // some would go on for ever
        run();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

/// The wait status.
inline int wait(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

inline int inChild(std::function<void()> const& run) {
    return wait(start(run));
}

/// The signal that ended the child, 0 when none did.
inline int killAndWait(pid_t child) {
    kill(child, SIGKILL);
    return WTERMSIG(wait(child));
}

#endif
