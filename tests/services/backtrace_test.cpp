// Backtraces: what each line says, for how long it is remembered, and what becomes of it without memory, in several
// threads and in a forked child.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/cancelled.h"
#include "support/children.h"
#include "support/failingnew.h"
#include "zelqplatform/errorlog_service.h"

namespace backtracetest {

using Callback = void (*)(void*);

struct Captured {
    int result = -1;
    int length = -1;
    bool hasText = false;
    bool hasFailed = false;
    std::string text;
};

struct Line {
    std::size_t number;
    std::uintptr_t address;
    std::string function;
    std::uintptr_t offset;
    std::string module;
    std::uintptr_t moduleOffset;
};

std::uintptr_t hexadecimal(std::string const& text) {
    return text.empty() ? 0 : static_cast<std::uintptr_t>(std::stoull(text, nullptr, 16));
}

std::vector<Line> parse(std::string const& text) {
    static std::regex const pattern(
        R"(#(\d+) +(0x[0-9a-f]+)  (\?\?|(\S.*)\+(0x[0-9a-f]+))(  \[([^/]+)\+(0x[0-9a-f]+)\])?)");
    std::vector<Line> lines;
    std::istringstream input(text);
    for (std::string row; std::getline(input, row);) {
        std::smatch match;
        if (std::regex_match(row, match, pattern)) {
            std::string const function = match[4].matched ? match[4] : match[3];
            lines.push_back({std::stoul(match[1]), hexadecimal(match[2]), function, hexadecimal(match[5]), match[7],
                             hexadecimal(match[8])});
        } else {
            ADD_FAILURE() << "not a frame: " << row;
        }
    }
    return lines;
}

__attribute__((noipa)) Captured captured(int skip, unsigned failingAllocation = 0) {
    Captured result;
    char* text = nullptr;
    failAllocation(failingAllocation);
    result.result = xlog_get_backtrace(&text, skip, &result.length);
    result.hasFailed = hasFailed();
    failAllocation(0);
    result.hasText = text != nullptr;
    result.text = text != nullptr ? text : "";
    std::free(text);
    return result;
}

std::string functions(std::vector<Line> const& lines, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count && i < lines.size(); ++i) {
        all += lines[i].function + '\n';
    }
    return all;
}

/// A module, loaded as long as the object lives.
class Module {
public:
    Module(char const* path, char const* function)
        : handle_(dlopen(path, RTLD_NOW)),
          call(handle_ == nullptr ? nullptr : reinterpret_cast<void (*)(Callback, void*)>(dlsym(handle_, function))) {}
    ~Module() { dlclose(handle_); }
    Module(Module const&) = delete;
    Module& operator=(Module const&) = delete;

private:
    void* handle_;

public:
    void (*const call)(Callback, void*);
};

// Each change of the loaded modules makes the service forget.
void forgetLines() {
    Module const module(OTHER_MODULE, "otherModuleCall");
}

namespace {

void captureInto(void* target) {
    *static_cast<Captured*>(target) = captured(0);
}

std::vector<Line> captureThrough(Module const& module) {
    Captured result;
    module.call(captureInto, &result);
    return parse(result.text);
}

std::uintptr_t addressOf(Module const& module) {
    return reinterpret_cast<std::uintptr_t>(module.call);
}

// A chain of functions: all static to this file, none exported, none of them a jump.
using Captures = std::vector<Captured>;

__attribute__((noipa)) void innermost(Captures& captures, int first, int last) {
    for (int skip = first; skip <= last; ++skip) {
        captures.push_back(captured(skip));
    }
}
__attribute__((noipa)) void middle(char const*, Captures& captures, int first, int last) {
    innermost(captures, first, last);
    asm volatile("");
}
__attribute__((noipa)) void outermost(Captures& captures, int first, int last) {
    middle("", captures, first, last);
    asm volatile("");
}

std::vector<Captured> chain(int first, int last) {
    Captures captures;
    outermost(captures, first, last);
    return captures;
}

std::string name(std::string const& parameters) {
    return "backtracetest::(anonymous namespace)::" + parameters;
}

TEST(Backtrace, namesTheFunctionsInnermostFirst) {
    Captured const result = chain(0, 0).front();
    EXPECT_EQ(result.result, 0);
    EXPECT_EQ(result.length, static_cast<int>(result.text.size()));
    EXPECT_NE(result.text.back(), '\n');

    std::vector<Line> const lines = parse(result.text);
    ASSERT_GT(lines.size(), 5U);
    EXPECT_EQ(lines[0].function, "backtracetest::captured(int, unsigned int)");
    std::string const captures = "std::vector<backtracetest::Captured, std::allocator<backtracetest::Captured> >&";
    EXPECT_EQ(lines[1].function, name("innermost(") + captures + ", int, int)");
    EXPECT_EQ(lines[2].function, name("middle(char const*, ") + captures + ", int, int)");
    EXPECT_EQ(lines[3].function, name("outermost(") + captures + ", int, int)");
    EXPECT_EQ(lines.back().function, "_start");

    auto const start = reinterpret_cast<std::uintptr_t>(&middle);
    EXPECT_EQ(lines[2].offset, lines[2].address - start);
    Dl_info known;
    ASSERT_NE(dladdr(reinterpret_cast<void*>(start), &known), 0);
    EXPECT_EQ(known.dli_sname, nullptr) << "the loader knows the function, so its file is not looked into";
    EXPECT_EQ(lines[2].module, "backtrace_test");
    EXPECT_EQ(lines[2].moduleOffset, lines[2].address - reinterpret_cast<std::uintptr_t>(known.dli_fbase));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].number, i);
    }
}

TEST(Backtrace, leavesOutExactlyTheFramesItIsToldTo) {
    std::vector<Captured> const captures = chain(-3, 5);
    std::vector<Line> const whole = parse(captures[3].text);  // -3, -2 and -1 count as 0
    for (int skip = -3; skip <= 5; ++skip) {
        std::vector<Line> const lines = parse(captures[static_cast<std::size_t>(skip + 3)].text);
        auto const leftOut = static_cast<std::size_t>(skip < 0 ? 0 : skip);
        ASSERT_EQ(lines.size(), whole.size() - leftOut);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].address, whole[i + leftOut].address);
            EXPECT_EQ(lines[i].number, i);
        }
    }
    auto const depth = static_cast<int>(whole.size());
    EXPECT_EQ(parse(chain(depth - 1, depth - 1).front().text).size(), 1U);
    for (int const skip : {depth, depth + 1, INT_MAX - 1}) {
        Captured const result = chain(skip, skip).front();
        EXPECT_EQ(result.result, ENODATA);
        EXPECT_FALSE(result.hasText);
        EXPECT_EQ(result.length, 0);
    }
}

TEST(Backtrace, keepsErrnoAndTakesNullPointers) {
    char* text = nullptr;
    errno = ELOOP;
    EXPECT_EQ(xlog_get_backtrace(&text, 0, nullptr), 0);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_NE(text, nullptr);
    std::free(text);
    int length = -1;
    EXPECT_EQ(xlog_get_backtrace(nullptr, 0, &length), EINVAL);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(errno, ELOOP);
}

TEST(Backtrace, forgetsAnUnloadedModule) {
    std::uintptr_t oldPlace = 0;
    std::vector<Line> before;
    {
        Module const module(FIRST_MODULE, "firstModuleCall");
        ASSERT_NE(module.call, nullptr);
        oldPlace = addressOf(module);
        before = captureThrough(module);
        EXPECT_EQ(functions(captureThrough(module), 4), functions(before, 4));
    }
    ASSERT_GT(before.size(), 4U);
    EXPECT_EQ(before[2].function, "firstModuleHidden(void (*)(void*), void*)");
    EXPECT_EQ(before[3].function, "firstModuleCall");
    EXPECT_EQ(before[3].module, "libbacktrace_module_first.so");

    Module const module(OTHER_MODULE, "otherModuleCall");
    ASSERT_NE(module.call, nullptr);
    ASSERT_EQ(addressOf(module), oldPlace) << "the test needs the second module where the first one was";
    std::vector<Line> const after = captureThrough(module);
    ASSERT_EQ(after[3].address, before[3].address);
    EXPECT_EQ(after[2].function, "otherModuleHidden(void (*)(void*), void*)");
    EXPECT_EQ(after[3].function, "otherModuleCall");
    EXPECT_EQ(after[3].module, "libbacktrace_module_other.so");
}

TEST(Backtrace, looksOnlyIntoTheFileThatWasLoaded) {
    std::string const copy = std::filesystem::current_path() / ("module-" + std::to_string(getpid()) + ".so");
    std::filesystem::copy_file(FIRST_MODULE, copy);
    {
        Module const module(copy.c_str(), "firstModuleCall");
        ASSERT_NE(module.call, nullptr);
        std::filesystem::remove(copy);
        std::filesystem::copy_file(OTHER_MODULE, copy);
        std::vector<Line> const lines = captureThrough(module);
        EXPECT_EQ(lines[2].function, "??");
        EXPECT_EQ(lines[3].function, "firstModuleCall");
    }
    std::filesystem::remove(copy);
}

// As after an upgrade of the running program.
TEST(Backtrace, namesAProgramWhoseFileIsGone) {
    std::string const own = std::filesystem::read_symlink("/proc/self/exe");
    std::string const copy = own + "-gone";
    if (own.find("-gone") == std::string::npos) {
        std::filesystem::copy_file(own, copy, std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(std::system(("'" + copy + "' --gtest_filter=Backtrace.namesAProgramWhoseFileIsGone").c_str()), 0);
        return;
    }
    std::filesystem::remove(own);
    Line const line = parse(captured(0).text).at(0);
    EXPECT_EQ(line.module, "backtrace_test-gone");
    EXPECT_EQ(line.function, "backtracetest::captured(int, unsigned int)");
}

struct Descent {
    Module const& module;
    int left;
    Captured result;
};

__attribute__((noipa)) void descend(void* argument) {
    auto& descent = *static_cast<Descent*>(argument);
    if (descent.left-- == 0) {
        descent.result = captured(0);
    } else {
        descent.module.call(descend, argument);
    }
    asm volatile("");
}

TEST(Backtrace, isWholeInADeepRecursionOrSaysThatItIsCut) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    for (int const depth : {66, 100}) {
        Descent descent = {module, depth, {}};
        descend(&descent);
        std::string text = descent.result.text;
        if (depth == 100) {
            std::size_t const last = text.rfind('\n');
            EXPECT_EQ(text.substr(last + 1), "#256 and more: only the innermost frames are described");
            text.resize(last);
        }
        std::vector<Line> const lines = parse(text);
        ASSERT_GT(lines.size(), 200U);
        for (std::size_t i = 1; i < 199; i += 3) {
            EXPECT_EQ(lines[i].function, name("descend(void*)"));
            EXPECT_EQ(lines[i + 1].module, "libbacktrace_module_first.so");
            EXPECT_EQ(lines[i + 2].function, "firstModuleCall");
        }
        EXPECT_EQ(lines.size() == 256, depth == 100);
        EXPECT_EQ(lines.back().function == "_start", depth != 100);
    }
}

}  // namespace
}  // namespace backtracetest

// A function that ends in a call, and so returns into the one behind it; and
// that one, which faults at its first instruction. Both stand on stacks with
// the same address, at different moments.
#ifdef __x86_64__
#define CALL_ARGUMENT "subq $8, %rsp; .cfi_adjust_cfa_offset 8; call *%rdi"
#else
#define CALL_ARGUMENT "subl $12, %esp; .cfi_adjust_cfa_offset 12; call *16(%esp)"
#endif
asm(".pushsection .text; .type endsInACall, @function; .type faultsAtOnce, "
    "@function\n"
    "endsInACall: .cfi_startproc;" CALL_ARGUMENT
    "; .cfi_endproc; .size endsInACall, . - endsInACall\n"
    "faultsAtOnce: .cfi_startproc; ud2; .cfi_endproc; .size faultsAtOnce, . - "
    "faultsAtOnce; .popsection");
extern "C" __attribute__((visibility("hidden"))) void endsInACall(void (*callback)());
extern "C" __attribute__((visibility("hidden"))) void faultsAtOnce();

namespace backtracetest {
namespace {

sigjmp_buf wayBack;
Captured onTheWay;

void captureAndLeave() {
    onTheWay = captured(0);
    siglongjmp(wayBack, 1);
}

TEST(Backtrace, namesTheFunctionThatEndsInACallAndTheOneThatFaults) {
    for (int round = 0; round < 2; ++round) {  // the second one with remembered lines
        if (sigsetjmp(wayBack, 1) == 0) {
            endsInACall(captureAndLeave);
        }
        std::vector<Line> const calling = parse(onTheWay.text);
        ASSERT_GT(calling.size(), 3U);
        EXPECT_EQ(calling[2].function, "endsInACall");

        struct sigaction action = {};
        struct sigaction previous;
        action.sa_handler = [](int) { captureAndLeave(); };
        ASSERT_EQ(sigaction(SIGILL, &action, &previous), 0);
        if (sigsetjmp(wayBack, 1) == 0) {
            faultsAtOnce();
        }
        sigaction(SIGILL, &previous, nullptr);
        std::vector<Line> const faulting = parse(onTheWay.text);
        auto const fault = std::find_if(faulting.begin(), faulting.end(),
                                        [](Line const& line) { return line.function == "faultsAtOnce"; });
        ASSERT_NE(fault, faulting.end()) << onTheWay.text;
        EXPECT_EQ(fault->offset, 0U);
        EXPECT_EQ(fault->address, calling[2].address);
    }
}

// The program's own function has the name of a mangled type.
extern "C" __attribute__((noipa)) void i(Captured& result) {
    result = captured(0);
    asm volatile("");
}

TEST(Backtrace, leavesNamesOfCFunctionsAlone) {
    Captured result;
    i(result);
    EXPECT_EQ(parse(result.text)[1].function, "i");
}

template <typename... Types>
__attribute__((noipa)) void manyTypes(Captured& result) {
    result = captured(0);
    asm volatile("");
}

TEST(Backtrace, cutsLongNames) {
    Captured result;
    using Long = std::pair<std::vector<std::string>, std::vector<std::string>>;
    manyTypes<Long, Long, Long>(result);
    std::string const function = parse(result.text)[1].function;
    EXPECT_EQ(function.size(), 256U + 3U);
    EXPECT_EQ(function.substr(256), "...");
}

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

TEST(Backtrace, isWholeInAThreadThatIsToBeCancelled) {
    forgetLines();
    EXPECT_TRUE(outlivesCancellation(
        [] { EXPECT_NE(captured(0).text.find("isWholeInAThreadThatIsToBeCancelled"), std::string::npos); }));
}

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
        int const status = inChild([] {
            alarm(20);
            EXPECT_NE(captured(0).text.find("worksInAForkedChild"), std::string::npos);
        });
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
