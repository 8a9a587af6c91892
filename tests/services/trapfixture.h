#ifndef ZELQ_TEST_TRAPFIXTURE_H
#define ZELQ_TEST_TRAPFIXTURE_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "support/children.h"
#include "zelqplatform/pce_service.h"

// What a program check does is seen in children that die of it: each tells through a pipe which
// exits and handlers were called, and its parent compares that and the wait status.

namespace traptest {

using Exits = std::vector<xpce_user_exit>;

struct Report {
    char who;
    int signal;
    void* address;
};

#ifdef __SANITIZE_ADDRESS__
constexpr bool isAddressSanitized = true;
#else
constexpr bool isAddressSanitized = false;
#endif

inline int reportPipe[2];
inline std::size_t const pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
inline char* const readable =
    static_cast<char*>(mmap(nullptr, 2 * pageSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
inline char* const unreadable = readable + pageSize;  // from outcomeOf() on

inline void tell(char who, int signal, siginfo* info) {
    Report const report = {who, signal, info == nullptr ? nullptr : info->si_addr};
    ASSERT_EQ(static_cast<ssize_t>(sizeof report), write(reportPipe[1], &report, sizeof report));
}

template <char who>
void exitOf(int signal, siginfo* info, void*) {
    tell(who, signal, info);
}

struct Outcome {
    int status = 0;
    std::string who;
    std::vector<Report> reports;
};

inline std::ostream& operator<<(std::ostream& stream, Outcome const& outcome) {
    return stream << "wait status " << outcome.status << ", called \"" << outcome.who << '"';
}

inline bool operator==(Outcome const& left, Outcome const& right) {
    return left.status == right.status && left.who == right.who;
}

// A wait status has the signal in its low bits (no core is written), an exit status above.
inline Outcome died(int signal, std::string const& who) {
    return {signal, who, {}};
}
inline Outcome ended(int exitStatus, std::string const& who) {
    return {exitStatus << 8, who, {}};
}

inline pid_t startFailing(std::function<void()> const& run) {
    EXPECT_EQ(0, mprotect(unreadable, pageSize, PROT_NONE));
    return start([&] {
        prctl(PR_SET_PDEATHSIG, 0);  // a child may outlive a parent that failed
        prctl(PR_SET_DUMPABLE, 0);   // no core file, whoever would receive it
        alarm(30);
        run();
    });
}

inline Outcome outcomeOf(std::function<void()> const& run) {
    EXPECT_EQ(0, pipe(reportPipe));
    Outcome outcome;
    pid_t const child = startFailing(run);
    close(reportPipe[1]);
    for (Report report{}; read(reportPipe[0], &report, sizeof report) > 0; outcome.reports.push_back(report)) {
        outcome.who += report.who;
    }
    outcome.status = wait(child);
    close(reportPipe[0]);
    return outcome;
}

inline void setUp(Exits const& exits) {
    ASSERT_EQ(XPCE_OK, xpce_setup(1, nullptr, nullptr, nullptr));
    for (xpce_user_exit const exit : exits) {
        ASSERT_EQ(XPCE_OK, xpce_add_user_exit(exit, nullptr));
    }
}

inline Outcome inSetUpChild(Exits const& exits, std::function<void()> const& run) {
    return outcomeOf([&] {
        setUp(exits);
        run();
    });
}

inline struct sigaction actionOf(int signal) {
    struct sigaction action {};
    EXPECT_EQ(0, sigaction(signal, nullptr, &action));
    action.sa_flags &= ~0x04000000;  // the C library's own
    return action;
}

inline void setAction(int signal, xpce_user_exit handler, int flags, void (*plain)(int) = nullptr) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    if (plain != nullptr) {
        action.sa_handler = plain;
    }
    action.sa_flags = flags;
    sigaddset(&action.sa_mask, SIGUSR1);
    ASSERT_EQ(0, sigaction(signal, &action, nullptr));
}

// From here on the system call fails when its first argument is this one.
inline void forbid(unsigned call, unsigned argument, unsigned failure) {
    sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
                          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, argument, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | failure),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    sock_fprog const program = {sizeof code / sizeof code[0], code};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) | prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program));
}

inline void storeAt(char* address) {
    *static_cast<char volatile*>(address) = 1;
}
inline void segv() {
    storeAt(unreadable);
}
inline void sendBus() {
    kill(getpid(), SIGBUS);
}

}  // namespace traptest

#endif
