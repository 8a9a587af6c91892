#include <sys/resource.h>
#include <sys/syscall.h>
#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>

#include "trapfixture.h"
#include "zelqcood/exception.h"
#include "zelqcood/trap.h"

namespace traptest {
namespace {

constexpr int signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

stack_t stackOfThread() {
    stack_t stack{};
    EXPECT_EQ(0, sigaltstack(nullptr, &stack));
    return stack;
}

bool hasStack() {
    return (stackOfThread().ss_flags & SS_DISABLE) == 0;
}

void expectAction(struct sigaction const& expected, struct sigaction const& actual) {
    EXPECT_EQ(expected.sa_sigaction, actual.sa_sigaction);
    EXPECT_EQ(expected.sa_flags, actual.sa_flags);
    EXPECT_EQ(0, std::memcmp(&expected.sa_mask, &actual.sa_mask, 8));
}

TEST(TrapSetup, TheLastUnsetRestoresTheActions) {
    auto const run = [] {
        setAction(SIGSEGV, exitOf<'s'>, SA_SIGINFO | SA_NODEFER);
        setAction(SIGFPE, nullptr, SA_RESTART, SIG_IGN);
        struct sigaction before[4];
        std::transform(signals, signals + 4, before, actionOf);
        setUp({});
        struct sigaction const service = actionOf(SIGILL);
        EXPECT_EQ(SA_SIGINFO | SA_ONSTACK, service.sa_flags);
        setAction(SIGBUS, exitOf<'b'>, SA_SIGINFO);
        before[1] = actionOf(SIGBUS);
        setUp({});
        expectAction(before[1], actionOf(SIGBUS));
        EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
        for (int const signal : {SIGSEGV, SIGFPE, SIGILL}) {
            expectAction(service, actionOf(signal));
        }
        EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
        for (int i = 0; i < 4; ++i) {
            expectAction(before[i], actionOf(signals[i]));
        }
        EXPECT_EQ(0, sigaction(SIGILL, &service, nullptr)) << "as a program does that puts back what it once found";
        setUp({});
        EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
        expectAction(before[3], actionOf(SIGILL));
    };
    EXPECT_EQ(outcomeOf(run), ended(0, ""));
}

TEST(TrapSetup, TheAreasReceiveWhatWasReplaced) {
    auto const run = [] {
        char areas[3][XPCE_AREA_SIZE + 1];
        std::memset(areas, '#', sizeof areas);
        setAction(SIGSEGV, exitOf<'s'>, SA_SIGINFO | SA_NODEFER);
        setAction(SIGBUS, exitOf<'b'>, SA_SIGINFO);
        struct sigaction expected[3] = {actionOf(SIGSEGV), actionOf(SIGBUS), {}};
        EXPECT_EQ(XPCE_NOT_SET_UP, xpce_unset(areas[2], nullptr));
        EXPECT_EQ(std::string(XPCE_AREA_SIZE, '#'), std::string(areas[2], XPCE_AREA_SIZE));
        setUp({});
        expected[2] = actionOf(SIGSEGV);
        EXPECT_EQ(XPCE_OK, xpce_setup(2, areas[0], areas[1], nullptr)) << "the second tells what the first found";
        EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
        EXPECT_EQ(XPCE_OK, xpce_unset(areas[2], nullptr));
        for (int i = 0; i < 3; ++i) {
            struct sigaction action {};
            std::memcpy(&action, areas[i], std::min<std::size_t>(sizeof action, XPCE_AREA_SIZE));
            action.sa_flags &= ~0x04000000;
            expectAction(expected[i], action);
            EXPECT_EQ('#', areas[i][XPCE_AREA_SIZE]);
        }
    };
    EXPECT_EQ(outcomeOf(run), ended(0, ""));
}

TEST(TrapSetup, ThreadsThatCallGetAnAlternateStack) {
    auto const run = [] {
        setUp({});
        EXPECT_TRUE(hasStack());
        EXPECT_GE(stackOfThread().ss_size, 64U << 10);
        EXPECT_NE(0, xpce_ckptr(static_cast<char*>(stackOfThread().ss_sp) - 1, 1, nullptr)) << "no guard page";
        void* stackOfOther = nullptr;
        std::thread([&] {
            EXPECT_FALSE(hasStack());
            xpce_add_user_exit(exitOf<'a'>, nullptr);
            EXPECT_TRUE(hasStack());
            stackOfOther = stackOfThread().ss_sp;
            EXPECT_EQ(0, xpce_ckptr(stackOfOther, 1, nullptr));
        }).join();
        EXPECT_NE(0, xpce_ckptr(stackOfOther, 1, nullptr)) << "it goes with its thread";
        EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
        EXPECT_FALSE(hasStack());
        static char memory[64 << 10];
        stack_t own{};
        own.ss_sp = memory;
        own.ss_size = sizeof memory;
        setUp({});
        EXPECT_EQ(0, sigaltstack(&own, nullptr));
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
            EXPECT_EQ(memory, stackOfThread().ss_sp);
            setUp({});
            EXPECT_EQ(memory, stackOfThread().ss_sp);
        }
    };
    EXPECT_EQ(outcomeOf(run), ended(0, ""));
}

void expectResult(int expected, int expectedCrc, std::function<int(int*)> const& call) {
    int crc = -1;
    errno = ENOTTY;
    int const result = call(&crc);
    EXPECT_EQ(ENOTTY, errno);
    EXPECT_EQ(std::make_pair(expected, expectedCrc), std::make_pair(result, crc));
}

void expectSetup(int expected, int expectedCrc) {
    expectResult(expected, expectedCrc, [](int* crc) { return xpce_setup(1, nullptr, nullptr, crc); });
}
void expectUnset(int expected, int expectedCrc) {
    expectResult(expected, expectedCrc, [](int* crc) { return xpce_unset(nullptr, crc); });
}
void expectAdd(int expected, int expectedCrc, xpce_user_exit exit) {
    expectResult(expected, expectedCrc, [=](int* crc) { return xpce_add_user_exit(exit, crc); });
}
void expectRemove(int expected, int expectedCrc, xpce_user_exit exit) {
    expectResult(expected, expectedCrc, [=](int* crc) { return xpce_remove_user_exit(exit, crc); });
}

template <std::size_t... numbers>
Exits manyExits(std::index_sequence<numbers...>) {
    return {exitOf<static_cast<char>('A' + numbers)>...};
}

TEST(TrapSetup, TellsWhatWasWrong) {
    Exits const exits = manyExits(std::make_index_sequence<XPCE_EXIT_MAX>());
    auto const run = [&] {
        expectUnset(XPCE_NOT_SET_UP, EPERM);
        expectAdd(XPCE_NOT_SET_UP, EPERM, exitOf<'z'>);
        expectRemove(XPCE_NOT_SET_UP, EPERM, exitOf<'z'>);
        setUp({exitOf<'z'>});
        expectUnset(XPCE_OK, 0);
        expectSetup(XPCE_OK, 0);
        expectRemove(XPCE_NOT_REGISTERED, 0, exitOf<'z'>);
        expectAdd(XPCE_NO_EXIT, EINVAL, nullptr);
        expectRemove(XPCE_NO_EXIT, EINVAL, nullptr);
        for (xpce_user_exit const exit : exits) {
            expectAdd(XPCE_OK, 0, exit);
            expectAdd(XPCE_ALREADY_REGISTERED, 0, exit);
        }
        expectAdd(XPCE_TABLE_FULL, ENOSPC, exitOf<'z'>);
        expectRemove(XPCE_OK, 0, exits[3]);
        expectRemove(XPCE_NOT_REGISTERED, 0, exits[3]);
        testing::Test::HasFailure() ? _exit(1) : segv();
    };
    EXPECT_EQ(outcomeOf(run), died(SIGSEGV, "ABCEFGHIJKLMNOP"));
}

TEST(TrapSetup, TellsWhatTheSystemRefused) {
    auto const noAction = [] {
        xpce_user_exit const before = actionOf(SIGSEGV).sa_sigaction;
        forbid(SYS_rt_sigaction, SIGFPE, EACCES);
        expectSetup(XPCE_NO_ACTION, EACCES);
        EXPECT_EQ(before, actionOf(SIGSEGV).sa_sigaction) << "half done";
        EXPECT_FALSE(hasStack());
        expectUnset(XPCE_NOT_SET_UP, EPERM);
        try {
            XTrapHandler(XTrapHandler::serviceProcess, nullptr);
            ADD_FAILURE() << "set up";
        } catch (XException const& failure) {
            EXPECT_FALSE(failure.isLogged()) << "the catcher would not record it, and nobody else has";
        }
    };
    EXPECT_EQ(outcomeOf(noAction), ended(0, ""));
    auto const noRestoring = [] {
        forbid(SYS_rt_sigaction, SIGBUS, EACCES);
        expectUnset(XPCE_NO_ACTION, EACCES);
        EXPECT_FALSE(actionOf(SIGILL).sa_flags & SA_ONSTACK) << "the others are restored";
        expectUnset(XPCE_NOT_SET_UP, EPERM);
    };
    EXPECT_EQ(inSetUpChild({}, noRestoring), ended(0, ""));
    auto const noSiginfo = [] {
        forbid(SYS_rt_tgsigqueueinfo, static_cast<unsigned>(getpid()), EPERM);
        sendBus();
    };
    EXPECT_EQ(inSetUpChild({exitOf<'a'>}, noSiginfo), died(SIGBUS, "a"));
}

TEST(TrapSetup, TellsThatThereIsNoAlternateStack) {
    if (isAddressSanitized) {
        GTEST_SKIP() << "the sanitizer itself asks for the stack whenever a program ends";
    }
    auto const noStack = [] {
        forbid(SYS_sigaltstack, 0, EACCES);
        expectSetup(XPCE_NO_STACK, EACCES);
        expectUnset(XPCE_NOT_SET_UP, EPERM);
    };
    EXPECT_EQ(outcomeOf(noStack), ended(0, ""));
    auto const noMemory = [] {
        rlimit const none = {0, RLIM_INFINITY}, enough = {RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_AS, &none);
        for (std::size_t size = 1 << 20; size != 0; size /= 2) {
            for (void* volatile taken = &size; taken != nullptr; taken = malloc(size)) {
            }
        }
        expectSetup(XPCE_NO_STACK, ENOMEM);
        setrlimit(RLIMIT_AS, &enough);
        expectSetup(XPCE_OK, 0);
    };
    EXPECT_EQ(outcomeOf(noMemory), ended(0, ""));
    auto const noStackInThread = [] {
        std::thread([] {
            forbid(SYS_sigaltstack, 0, EACCES);
            expectAdd(XPCE_NO_STACK, EACCES, exitOf<'a'>);
            expectRemove(XPCE_NOT_REGISTERED, 0, exitOf<'a'>);
        }).join();
    };
    EXPECT_EQ(inSetUpChild({}, noStackInThread), ended(0, ""));
}

TEST(TrapSetup, ThreadsMayCallAtOnce) {
    auto const run = [] {
        xpce_user_exit const exits[] = {exitOf<'a'>, exitOf<'b'>, exitOf<'c'>, exitOf<'d'>};
        std::vector<std::thread> threads;
        for (xpce_user_exit const exit : exits) {
            threads.emplace_back([exit] {
                for (int round = 0; round < 5000 && !testing::Test::HasFailure(); ++round) {
                    setUp({exit});
                    EXPECT_EQ(XPCE_OK, xpce_remove_user_exit(exit, nullptr));
                    EXPECT_EQ(XPCE_OK, xpce_unset(nullptr, nullptr));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        expectUnset(XPCE_NOT_SET_UP, EPERM);
        EXPECT_EQ(SIG_DFL, actionOf(SIGILL).sa_handler);
    };
    EXPECT_EQ(outcomeOf(run), ended(0, ""));
}

}  // namespace
}  // namespace traptest
