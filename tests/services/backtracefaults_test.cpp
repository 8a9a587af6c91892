// Backtraces without memory, with several threads, and in a forked child.

#include "backtracefixture.h"

#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <thread>

namespace backtracetest {
namespace {

#ifndef __SANITIZE_ADDRESS__
// Names longer than usual, so that the text has to grow.
template <typename... Types>
__attribute__((noipa)) void callBelowLongNames(Module const& module, Callback callback, void* argument, int names) {
    if (names == 0) {
        module.call(callback, argument);
    } else {
        callBelowLongNames<Types...>(module, callback, argument, names - 1);
    }
    asm volatile("");
}

struct Attempt {
    unsigned failingAllocation;
    Captured result;
};

void captureFailing(void* argument) {
    auto& attempt = *static_cast<Attempt*>(argument);
    attempt.result = captured(0, attempt.failingAllocation);
}

TEST(Backtrace, withoutMemoryThereIsNoText) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    auto const capture = [&](unsigned failingAllocation) {
        Attempt attempt = {failingAllocation, {}};
        callBelowLongNames<Captured, Line, std::string, std::string>(module, captureFailing, &attempt, 20);
        return attempt.result;
    };
    std::string const whole = functions(parse(capture(0).text), 99);
    int failures = 0;
    long live = 0;
    bool hasFailed = true;
    for (unsigned n = 1; hasFailed; ++n) {
        forgetLines();
        for (unsigned const failing : {n, 0U}) {  // then once more with memory: everything is remembered again
            Captured const attempt = capture(failing);
            hasFailed = failing == 0 ? hasFailed : attempt.hasFailed;
            failures += attempt.result != 0;
            EXPECT_EQ(attempt.result, attempt.hasText || failing == 0 ? 0 : ENOMEM);
            EXPECT_EQ(attempt.length, static_cast<int>(attempt.text.size()));
            EXPECT_EQ(functions(parse(attempt.text), 99), attempt.hasText ? whole : "");
        }
        EXPECT_TRUE(n == 1 || liveMallocs() == live) << "after allocation " << n;
        live = liveMallocs();
    }
    EXPECT_GT(failures, 10);
}
#endif

TEST(Backtrace, severalThreadsAtOnce) {
    std::atomic<int> wrong{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&] {
            std::string expected;
            for (int round = 0; round < 1200; ++round) {
                std::string const text = captured(0).text;
                expected = round == 0 ? text : expected;
                wrong += text != expected || text.find("backtracetest::captured(") > 22;
            }
        });
    }
    std::thread forgetful([&] {
        while (!stop) {
            forgetLines();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    stop = true;
    forgetful.join();
    EXPECT_EQ(wrong, 0);
}

#ifndef __SANITIZE_ADDRESS__  // whose allocator may stay locked in a child
TEST(Backtrace, worksInAForkedChild) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                captured(0);
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        pid_t const child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(20);
            _exit(captured(0).text.find("worksInAForkedChild") != std::string::npos ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0) << "child " << i;
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}
#endif

}  // namespace
}  // namespace backtracetest
