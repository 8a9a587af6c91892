// Backtraces of stacks that the tests build: what each line says, what is remembered of it and for
// how long, and what happens without memory, with several threads and with damaged files.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "services/elfsymbols.h"
#include "zelqplatform/errorlog_service.h"

#ifndef __SANITIZE_ADDRESS__
namespace {

thread_local unsigned countdown = 0;
thread_local bool failed = false;
thread_local long live = 0;

bool failsNow() {
    failed = failed || countdown == 1;
    return countdown != 0 && --countdown == 0;
}

}  // namespace

// The library's malloc() is this one, as an executable comes first in symbol look-up.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    void* const memory = failsNow() ? nullptr : __libc_malloc(size);
    live += memory != nullptr;
    return memory;
}
void* calloc(std::size_t count, std::size_t size) {
    void* const memory = failsNow() ? nullptr : __libc_calloc(count, size);
    live += memory != nullptr;
    return memory;
}
void* realloc(void* old, std::size_t size) {
    void* const memory = failsNow() ? nullptr : __libc_realloc(old, size);
    live += old == nullptr && memory != nullptr;
    return memory;
}
void free(void* memory) {
    live -= memory != nullptr;
    __libc_free(memory);
}
}
#endif

namespace {

using Callback = void (*)(void*);

struct Captured {
    int result = -1;
    int length = -1;
    bool hasText = false;
    std::string text;
};

struct Line {
    std::size_t number = 0;
    std::uintptr_t address = 0;
    std::string function;
    std::uintptr_t offset = 0;
    std::string module;
    std::uintptr_t moduleOffset = 0;
};

std::uintptr_t hexadecimal(std::string const& text) {
    return static_cast<std::uintptr_t>(std::stoull(text, nullptr, 16));
}

std::vector<Line> parse(std::string const& text) {
    static std::regex const pattern(
        R"(#(\d+) +(0x[0-9a-f]+)  (\?\?|(\S.*)\+(0x[0-9a-f]+))(  \[([^/]+)\+(0x[0-9a-f]+)\])?)");
    std::vector<Line> lines;
    std::istringstream input(text);
    for (std::string row; std::getline(input, row);) {
        std::smatch match;
        if (!std::regex_match(row, match, pattern)) {
            ADD_FAILURE() << "not a frame: " << row;
            continue;
        }
        Line line;
        line.number = std::stoul(match[1]);
        line.address = hexadecimal(match[2]);
        line.function = match[4].matched ? match[4].str() : "??";
        line.offset = match[5].matched ? hexadecimal(match[5]) : 0;
        line.module = match[7];
        line.moduleOffset = match[8].matched ? hexadecimal(match[8]) : 0;
        lines.push_back(line);
    }
    return lines;
}

Captured captured(int skip) {
    Captured result;
    char* text = nullptr;
    result.result = xlog_get_backtrace(&text, skip, &result.length);
    result.hasText = text != nullptr;
    result.text = text != nullptr ? text : "";
    std::free(text);
    return result;
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
    return "(anonymous namespace)::" + parameters;
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

// Each change of the loaded modules makes the service forget.
void forgetLines() {
    Module const module(OTHER_MODULE, "otherModuleCall");
}

TEST(Backtrace, namesTheFunctionsInnermostFirst) {
    Captured const result = chain(0, 0).front();
    EXPECT_EQ(result.result, 0);
    EXPECT_EQ(result.length, static_cast<int>(result.text.size()));
    EXPECT_NE(result.text.back(), '\n');

    std::vector<Line> const lines = parse(result.text);
    ASSERT_GT(lines.size(), 5U);
    EXPECT_EQ(lines[0].function, name("captured(int)"));
    std::string const captures = "std::vector<" + name("Captured") + ", std::allocator<" + name("Captured") + "> >&";
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

TEST(Backtrace, modulePlusOffsetIsWhatAddr2lineTakes) {
    Line const line = parse(chain(0, 0).front().text)[2];
    std::ostringstream command;
    command << "addr2line -f -C -e " << std::filesystem::read_symlink("/proc/self/exe") << " 0x" << std::hex
            << line.moduleOffset - 1;
    FILE* const pipe = popen(command.str().c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char found[512] = "";
    ASSERT_NE(std::fgets(found, sizeof found, pipe), nullptr);
    pclose(pipe);
    EXPECT_EQ(std::string(found).find("(anonymous namespace)::middle("), 0U) << found;
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

TEST(Backtrace, isWholeInADeepRecursion) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    Descent descent = {module, 66, {}};
    descend(&descent);
    std::vector<Line> const lines = parse(descent.result.text);
    ASSERT_GT(lines.size(), 200U);
    for (std::size_t i = 1; i < 199; i += 3) {
        EXPECT_EQ(lines[i].function, name("descend(void*)"));
        EXPECT_EQ(lines[i + 1].module, "libbacktrace_module_first.so");
        EXPECT_EQ(lines[i + 2].function, "firstModuleCall");
    }
    EXPECT_EQ(lines.back().function, "_start");
}

TEST(Backtrace, saysWhenItIsCut) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    Descent descent = {module, 100, {}};
    descend(&descent);
    std::string const& text = descent.result.text;
    std::size_t const last = text.rfind('\n');
    EXPECT_EQ(text.substr(last + 1), "#256 and more: only the innermost frames are described");
    EXPECT_EQ(parse(text.substr(0, last)).size(), 256U);
}

}  // namespace

// A function that ends in a call, and so returns into the one behind it; and that one, which faults
// at its first instruction. Both stand on stacks with the same address, at different moments.
#ifdef __x86_64__
#define CALL_ARGUMENT "subq $8, %rsp; .cfi_adjust_cfa_offset 8; call *%rdi"
#else
#define CALL_ARGUMENT "subl $12, %esp; .cfi_adjust_cfa_offset 12; call *16(%esp)"
#endif
asm(".pushsection .text; .type endsInACall, @function; .type faultsAtOnce, @function\n"
    "endsInACall: .cfi_startproc;" CALL_ARGUMENT
    "; .cfi_endproc; .size endsInACall, . - endsInACall\n"
    "faultsAtOnce: .cfi_startproc; ud2; .cfi_endproc; .size faultsAtOnce, . - faultsAtOnce; .popsection");
extern "C" __attribute__((visibility("hidden"))) void endsInACall(void (*callback)());
extern "C" __attribute__((visibility("hidden"))) void faultsAtOnce();

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

TEST(Backtrace, withoutMemoryThereIsNoText) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    struct Attempt {
        unsigned n;
        Captured result;
        static void run(void* target) {
            auto& attempt = *static_cast<Attempt*>(target);
            char* text = nullptr;
            failed = false;
            countdown = attempt.n;
            attempt.result.result = xlog_get_backtrace(&text, 0, &attempt.result.length);
            countdown = 0;
            attempt.result.hasText = text != nullptr;
            attempt.result.text = text != nullptr ? text : "";
            std::free(text);
        }
    };
    Attempt whole = {0, {}};
    callBelowLongNames<Captured, Line, std::string, std::string>(module, Attempt::run, &whole, 20);
    ASSERT_EQ(whole.result.result, 0);
    int failures = 0;
    long liveBefore = 0;
    for (unsigned n = 1;; ++n) {
        forgetLines();
        bool hasFailed = false;
        for (unsigned const failing : {n, 0U}) {  // then once more with memory: everything is remembered again
            Attempt attempt = {failing, {}};
            callBelowLongNames<Captured, Line, std::string, std::string>(module, Attempt::run, &attempt, 20);
            hasFailed = hasFailed || failed;
            EXPECT_EQ(attempt.result.hasText, attempt.result.result == 0);
            EXPECT_EQ(attempt.result.length, static_cast<int>(attempt.result.text.size()));
            if (attempt.result.result == 0) {
                EXPECT_EQ(functions(parse(attempt.result.text), 99), functions(parse(whole.result.text), 99));
            } else {
                ++failures;
                EXPECT_EQ(attempt.result.result, ENOMEM);
                EXPECT_NE(failing, 0U);
            }
        }
        if (n > 1) {
            EXPECT_EQ(live, liveBefore) << "after allocation " << n;
        }
        liveBefore = live;
        if (!hasFailed) {
            EXPECT_GT(n, 20U);
            break;
        }
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
            std::vector<Captured> expected;
            for (int round = 0; round < 300; ++round) {
                std::vector<Captured> const captures = chain(0, 3);
                expected = round == 0 ? captures : expected;
                for (std::size_t i = 0; i < captures.size(); ++i) {
                    wrong += captures[i].text != expected[i].text || captures[i].text.find("(anonymous") > 22;
                }
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
                chain(0, 3);
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        pid_t const child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(20);
            char* text = nullptr;
            _exit(xlog_get_backtrace(&text, 0, nullptr) == 0 && std::strstr(text, "worksInAForkedChild") != nullptr
                      ? 0
                      : 1);
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

/// A file in memory, filled anew for each case.
class DamagedFile {
public:
    DamagedFile() : descriptor_(memfd_create("damaged", MFD_CLOEXEC)) {}
    ~DamagedFile() { close(descriptor_); }
    DamagedFile(DamagedFile const&) = delete;
    DamagedFile& operator=(DamagedFile const&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    void fill(std::string const& bytes, std::size_t size) {
        ASSERT_EQ(ftruncate(descriptor_, 0), 0);
        ASSERT_EQ(pwrite(descriptor_, bytes.data(), size, 0), static_cast<ssize_t>(size));
    }

private:
    int descriptor_;
};

class ElfFile : public testing::Test {
protected:
    ElfFile() {
        std::ifstream input(FIRST_MODULE, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(input), {});
        Module const module(FIRST_MODULE, "firstModuleCall");
        Dl_info known = {};
        dladdr(reinterpret_cast<void*>(module.call), &known);
        function_ = addressOf(module) - reinterpret_cast<std::uintptr_t>(known.dli_fbase);
    }

    // All that a caller would do with a file; true when it came out whole.
    bool walk(zelq::ElfSymbols& symbols, std::string const& path) const {
        zelq::ElfFunction found;
        bool named = false;
        if (symbols.open(path.c_str())) {
            named = symbols.find(function_, found) && std::strcmp(found.name, "firstModuleCall") == 0;
            for (std::uintptr_t address : {std::uintptr_t{0}, function_, function_ - 1, ~std::uintptr_t{0}}) {
                std::memset(found.name, 'x', sizeof found.name);
                if (symbols.find(address, found)) {
                    EXPECT_LT(strnlen(found.name, sizeof found.name), sizeof found.name);
                }
            }
        }
        // A loaded module is not to be damaged: its own bytes stay the measure for the file's.
        symbols.isFileOf(bytes_.data(), reinterpret_cast<std::uintptr_t>(bytes_.data()));
        return named;
    }

    std::string bytes_;
    std::uintptr_t function_ = 0;
    DamagedFile file_;
    zelq::ElfSymbols symbols_;
};

TEST_F(ElfFile, truncatedAtEachPlace) {
    ASSERT_GT(bytes_.size(), 4096U);
    for (std::size_t size = 0; size < bytes_.size(); size += 64) {
        file_.fill(bytes_, size);
        EXPECT_FALSE(walk(symbols_, file_.path())) << size;  // the section table stands at the end
    }
    file_.fill(bytes_, bytes_.size());
    EXPECT_TRUE(walk(symbols_, file_.path()));
}

TEST_F(ElfFile, truncatedWhileItIsOpen) {
    zelq::ElfFunction found;
    for (std::size_t size = 0; size < bytes_.size(); size += 64) {
        file_.fill(bytes_, bytes_.size());
        ASSERT_TRUE(symbols_.open(file_.path().c_str()));
        ASSERT_TRUE(symbols_.find(function_, found));
        file_.fill(bytes_, size);
        EXPECT_TRUE(!symbols_.find(function_, found) || size > 64);
    }
}

TEST_F(ElfFile, namesOnlyWhatAFunctionCovers) {
    zelq::ElfFunction found;
    ASSERT_TRUE(symbols_.open(FIRST_MODULE));
    EXPECT_FALSE(symbols_.find(0, found));
    EXPECT_FALSE(symbols_.find(~std::uintptr_t{0}, found));
    EXPECT_TRUE(symbols_.find(function_ + 1, found));
    EXPECT_EQ(found.start, function_);
}

TEST_F(ElfFile, everyFieldOfTheTablesDamaged) {
    ElfW(Ehdr) header;
    std::memcpy(&header, bytes_.data(), sizeof header);
    auto const damage = [&](std::size_t place) {
        for (int const byte : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            std::string damaged = bytes_;
            damaged[place] = static_cast<char>(byte);
            file_.fill(damaged, damaged.size());
            walk(symbols_, file_.path());
        }
    };
    for (std::size_t place = 0; place < sizeof header + header.e_phnum * sizeof(ElfW(Phdr)); ++place) {
        damage(place);
    }
    for (std::size_t place = header.e_shoff; place < bytes_.size(); ++place) {
        damage(place);
    }
}

TEST_F(ElfFile, randomBytes) {
    std::mt19937 random(20240229);  // the same bytes each time
    for (int round = 0; round < 5000; ++round) {
        std::string damaged = bytes_;
        for (auto count = 1 + random() % 200; count != 0; --count) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        std::memcpy(&damaged[0], bytes_.data(), random() % 2 == 0 ? sizeof(ElfW(Ehdr)) : 0);
        file_.fill(damaged, damaged.size());
        walk(symbols_, file_.path());
    }
}

TEST_F(ElfFile, belongsToOneModuleOnly) {
    Module const module(FIRST_MODULE, "firstModuleCall");
    Dl_info known = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(module.call), &known), 0);
    auto const bias = reinterpret_cast<std::uintptr_t>(known.dli_fbase);
    ASSERT_TRUE(symbols_.open(FIRST_MODULE));
    EXPECT_TRUE(symbols_.isFileOf(known.dli_fbase, bias));
    ASSERT_TRUE(symbols_.open(OTHER_MODULE));
    EXPECT_FALSE(symbols_.isFileOf(known.dli_fbase, bias));
}

TEST_F(ElfFile, longNotesAreComparedInPart) {
    ElfW(Ehdr) header;
    ElfW(Phdr) segment;
    std::memcpy(&header, bytes_.data(), sizeof header);
    int notes = 0;
    for (std::size_t i = 0; i < header.e_phnum; ++i) {
        char* const place = &bytes_[header.e_phoff + i * sizeof segment];
        std::memcpy(&segment, place, sizeof segment);
        if (segment.p_type == PT_NOTE) {
            ++notes;
            segment.p_filesz = 8192;
            std::memcpy(place, &segment, sizeof segment);
        }
    }
    ASSERT_GT(notes, 0);
    file_.fill(bytes_, bytes_.size());
    ASSERT_TRUE(symbols_.open(file_.path().c_str()));
    EXPECT_TRUE(symbols_.isFileOf(bytes_.data(), reinterpret_cast<std::uintptr_t>(bytes_.data())));
}

TEST_F(ElfFile, onlyRegularFilesAreRead) {
    std::string const pipe = std::filesystem::current_path() / ("pipe-" + std::to_string(getpid()));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(symbols_.open(pipe.c_str()));
    std::filesystem::remove(pipe);
    EXPECT_FALSE(symbols_.open("/"));
    EXPECT_FALSE(symbols_.open("/dev/zero"));
    EXPECT_FALSE(symbols_.open("nothing.so"));
    zelq::ElfFunction found;
    EXPECT_FALSE(symbols_.find(function_, found));
}

}  // namespace
