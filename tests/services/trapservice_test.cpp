#include <sys/ptrace.h>
#include <csetjmp>
#include <cstdio>
#include <ctime>
#include <thread>

#include "trapfixture.h"

// A sanitizer that handles the signals itself would end the children with an exit status.
extern "C" __attribute__((visibility("default"))) char const* __asan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:use_sigaltstack=0";
}

namespace traptest {
namespace {

void fpe() {
    asm volatile("xorl %%ecx, %%ecx; movl $1, %%eax; cltd; idivl %%ecx" ::: "eax", "ecx", "edx", "cc");
}
void ill() {
    asm volatile("ud2");
}
void bus() {
    int const file = fileno(std::tmpfile());
    storeAt(static_cast<char*>(mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)));
}
__attribute__((noipa)) int recurse(int depth) {
    char volatile frame[1024];
    frame[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : recurse(depth + 1) + frame[0];
}
void overflow() {
    recurse(0);
}
void overflowInThread() {
    std::thread([] { xpce_add_user_exit(exitOf<'a'>, nullptr), overflow(); }).join();
}

TEST(TrapService, CallsTheExitsInOrderAndDiesOfTheSignal) {
    struct {
        int signal;
        void (*fail)();
        void* address;
    } const cases[] = {{SIGSEGV, segv, unreadable},
                       {SIGSEGV, [] { storeAt(readable + 7); }, readable + 7},
                       {SIGFPE, fpe, nullptr},
                       {SIGILL, ill, nullptr},
                       {SIGBUS, bus, nullptr},
                       {SIGSEGV, overflow, nullptr},
                       {SIGSEGV, overflowInThread, nullptr},
                       {SIGBUS, sendBus, nullptr}};
    for (auto const& trap : cases) {
        for (bool const inForkedChild : {false, true}) {
            Outcome const outcome = inSetUpChild({exitOf<'b'>, exitOf<'a'>, exitOf<'c'>}, [&] {
                xpce_remove_user_exit(exitOf<'b'>, nullptr);
                xpce_add_user_exit(exitOf<'b'>, nullptr);  // in the first slot again, behind the others
                int status = 0;
                if (!inForkedChild || fork() == 0) {
                    trap.fail();
                }
                wait(&status);
                _exit(status);
            });
            EXPECT_EQ(outcome, inForkedChild ? ended(trap.signal, "acb") : died(trap.signal, "acb"));
            for (Report const& report : outcome.reports) {
                EXPECT_EQ(trap.signal, report.signal);
                EXPECT_TRUE(trap.address == nullptr || trap.address == report.address) << report.address;
            }
        }
    }
}

// A tracer sees what a core file would hold: the second stop is at the signal that ends the process.
TEST(TrapService, DiesWithTheSiginfoAndTheRegistersOfTheFault) {
    pid_t const child = startFailing([] {
        setUp({[](int, siginfo*, void*) {}});
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        segv();
    });
    siginfo infos[2] = {};
    unsigned long registers[2][32] = {};
    int status = 0;
    for (int stop = 0; stop < 2; ++stop) {
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSEGV) << stop << ' ' << status;
        ASSERT_EQ(0, ptrace(PTRACE_GETSIGINFO, child, nullptr, &infos[stop]));
        ASSERT_EQ(0, ptrace(PTRACE_GETREGS, child, nullptr, registers[stop]));
        ASSERT_EQ(0, ptrace(PTRACE_CONT, child, nullptr, SIGSEGV));
    }
    waitpid(child, &status, 0);
    EXPECT_EQ(SIGSEGV, status);
    EXPECT_EQ(infos[0].si_code, infos[1].si_code);
    EXPECT_EQ(unreadable, infos[1].si_addr);
    int const instruction = sizeof(long) == 8 ? 16 : 12, stack = sizeof(long) == 8 ? 19 : 15;
    EXPECT_EQ(registers[0][instruction], registers[1][instruction]);
    EXPECT_EQ(registers[0][stack], registers[1][stack]);
}

template <void (*act)()>
void exitDoing(int signal, siginfo* info, void*) {
    tell('<', signal, info);
    act();
    tell('>', signal, info);
}
void sleepShortly() {
    usleep(300000);
}
void hang() {
    for (;;) {
        pause();
    }
}
void leave() {
    _exit(7);
}
void failInChild() {
    if (fork() == 0) {
        fpe();
    }
    wait(nullptr);
}

TEST(TrapService, AnExitMayFailOrEndTheProcess) {
    auto const run = [](xpce_user_exit exit, void (*fail)()) { return inSetUpChild({exit, exitOf<'b'>}, fail); };
    EXPECT_EQ(run(exitDoing<segv>, segv), died(SIGSEGV, "<"));
    EXPECT_EQ(run(exitDoing<fpe>, segv), died(SIGSEGV, "<")) << "of the first signal";
    EXPECT_EQ(run(exitDoing<sendBus>, segv), died(SIGSEGV, "<>b")) << "a signal that is sent is dropped";
    EXPECT_EQ(run(exitDoing<leave>, segv), ended(7, "<"));
    EXPECT_EQ(run(exitDoing<failInChild>, segv), died(SIGSEGV, "<>b")) << "the child runs no exits for itself";
}

TEST(TrapService, AnExitMayUseUpTheAlternateStack) {
    if (isAddressSanitized) {
        GTEST_SKIP() << "the sanitizer takes the stack that begins anew for the old frames on it";
    }
    EXPECT_EQ(inSetUpChild({exitDoing<overflow>, exitOf<'b'>}, fpe), died(SIGFPE, "<"));
}

TEST(TrapService, ThreadsThatFailAtOnceRunTheExitsOnce) {
    auto const segvAndFpe = [] {
        std::thread first(segv);
        usleep(100000);
        fpe();
    };
    EXPECT_EQ(inSetUpChild({exitDoing<sleepShortly>}, segvAndFpe), died(SIGSEGV, "<>")) << "of the first signal";
    std::time_t const begin = std::time(nullptr);
    EXPECT_EQ(inSetUpChild({exitDoing<hang>}, segvAndFpe), died(SIGFPE, "<"));
    EXPECT_LE(std::time(nullptr), begin + 2 * XPCE_WAIT_SECONDS);
    Outcome const outcome = inSetUpChild({exitDoing<sleepShortly>}, [] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 20; ++i) {
            threads.emplace_back(segv);
        }
        hang();
    });
    EXPECT_EQ(outcome, died(SIGSEGV, "<>"));
}

TEST(TrapService, AChildNeedNotWaitForAThreadOfItsParent) {
    auto const run = [] {
        std::thread first(segv);
        usleep(100000);
        waitpid(startFailing(fpe), nullptr, 0);
    };
    EXPECT_EQ(inSetUpChild({exitDoing<sleepShortly>}, run), died(SIGSEGV, "<<>>"));
}

void mend(int signal, siginfo* info, void* context) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    bool const isMaskRight = sigismember(&mask, SIGUSR1) && sigismember(&mask, signal) && !sigismember(&mask, SIGFPE);
    bool const isContextRight = &static_cast<ucontext_t*>(context)->uc_flags == context;
    tell(isMaskRight && isContextRight ? 'm' : '!', signal, info);
    mprotect(unreadable, pageSize, PROT_READ | PROT_WRITE);
    errno = ENOTTY;
}
void mendThird(int signal, siginfo* info, void* context) {
    static int calls = 0;
    ++calls < 3 ? tell('n', signal, info) : mend(signal, info, context);
}
sigjmp_buf escape;
void jumpOut(int signal, siginfo* info, void*) {
    tell('j', signal, info);
    siglongjmp(escape, 1);
}
xpce_user_exit covered;
void callCovered(int signal, siginfo* info, void* context) {
    tell('c', signal, info);
    covered(signal, info, context);
    [[maybe_unused]] int volatile afterwards = 0;  // its frame stays while the other one runs
}
void coverService() {
    covered = actionOf(SIGSEGV).sa_sigaction;
    setAction(SIGSEGV, callCovered, SA_SIGINFO | SA_ONSTACK);
}

TEST(TrapService, ChainsToThePreviousHandler) {
    auto const run = [](xpce_user_exit previous, int flags, std::function<void()> const& fail,
                        void (*plain)(int) = nullptr) {
        return outcomeOf([&] {
            setAction(SIGSEGV, previous, flags, plain);
            setUp({exitOf<'a'>});
            fail();
        });
    };
    auto const segvKeepingErrno = [] {
        errno = EDOM;
        segv();
        EXPECT_EQ(EDOM, errno);
    };
    Outcome const mended = run(mend, SA_SIGINFO, segvKeepingErrno);
    EXPECT_EQ(mended, ended(0, "am"));
    EXPECT_TRUE(mended.reports.size() == 2 && mended.reports[1].address == unreadable);
    EXPECT_EQ(run(mendThird, SA_SIGINFO, segvKeepingErrno), ended(0, "annm")) << "exits ran again for the same fault";
    EXPECT_EQ(run(mendThird, SA_SIGINFO | static_cast<int>(SA_RESETHAND), segv), died(SIGSEGV, "an"));
    auto const plain = [](int signal) {
        mprotect(unreadable, pageSize, PROT_READ | PROT_WRITE);
        tell('p', signal, nullptr);
    };
    EXPECT_EQ(run(nullptr, 0, segvKeepingErrno, plain), ended(0, "ap"));
    auto const threeTimes = [] {
        for (int volatile i = 0; i < 3; i = i + 1) {
            sigsetjmp(escape, 1) == 0 ? storeAt(readable + i) : void();
        }
    };
    EXPECT_EQ(run(jumpOut, SA_SIGINFO, threeTimes), ended(0, "ajajaj"));
    auto const againCovered = [] {
        sigsetjmp(escape, 1) == 0 ? storeAt(unreadable) : void();
        mprotect(unreadable, pageSize, PROT_NONE);
        coverService();
        sigsetjmp(escape, 1) == 0 ? storeAt(unreadable + 1) : void();
    };
    EXPECT_EQ(run(mend, SA_SIGINFO, againCovered), ended(0, "amcam"));
    EXPECT_EQ(run(jumpOut, SA_SIGINFO, againCovered), ended(0, "ajcaj"));
    auto const twice = [] {
        setUp({exitDoing<sleepShortly>});
        std::thread first(segv);
        usleep(100000);
        segv();
        first.join();
    };
    EXPECT_EQ(run(mend, SA_SIGINFO, twice), ended(0, "a<>mm")) << "the second thread has waited";
    auto const sent = [] { raise(SIGSEGV); };
    EXPECT_EQ(run(nullptr, 0, sent, SIG_IGN), ended(0, ""));
    EXPECT_EQ(run(nullptr, 0, segv, SIG_IGN), died(SIGSEGV, "a"));
    auto const circle = [] {
        coverService();
        xpce_unset(nullptr, nullptr);
        setUp({exitOf<'a'>});
        segv();
    };
    EXPECT_EQ(inSetUpChild({}, circle), died(SIGSEGV, "ac")) << "each of two handlers is the other's previous one";
}

}  // namespace
}  // namespace traptest
