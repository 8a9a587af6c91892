#include "support/failingcalls.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

thread_local CallHook hook;
thread_local bool isHooked = false;
thread_local int descriptorOfCall = -1;
thread_local long long sleptNs = 0;
thread_local time_t wallClock = -1;
thread_local unsigned fileSystem = 0;

int ask(char const* name, int descriptor) {
    if (!isHooked) {
        return 0;
    }
    int const saved = errno;
    isHooked = false;
    descriptorOfCall = descriptor;
    int const answer = hook(name);
    isHooked = true;
    errno = saved;
    if (answer == dies) {
        _exit(0);
    }
    return answer;
}

// The C library's function of the same name: which of several names that is for one function of the
// headers depends on the width of files and times.
template <auto* replacement>
auto* next() {
    static auto* const found = [] {
        Dl_info info;
        void* const own = reinterpret_cast<void*>(replacement);
        if (dladdr(own, &info) == 0 || info.dli_sname == nullptr || info.dli_saddr != own) {
            std::fputs("the program does not export its symbols\n", stderr);
            std::abort();
        }
        return reinterpret_cast<decltype(replacement)>(dlsym(RTLD_NEXT, info.dli_sname));
    }();
    return found;
}

template <auto* replacement, typename... Arguments>
auto call(char const* name, int descriptor, Arguments... arguments) {
    using Result = decltype(replacement(arguments...));
    if (int const answer = ask(name, descriptor); answer > 0) {
        errno = answer;
        return static_cast<Result>(-1);
    }
    return next<replacement>()(arguments...);
}

mode_t modeOf(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

CallsHooked::CallsHooked(CallHook newHook) {
    hook = std::move(newHook);
    isHooked = true;
}

CallsHooked::~CallsHooked() {
    isHooked = false;
    hook = nullptr;
    wallClock = -1;
    fileSystem = 0;
}

StandardDescriptorsClosed::StandardDescriptorsClosed()
    : hooked_([](std::string const& name) {
          for (int const standard : {0, 1, 2}) {
              EXPECT_GT(0, write(standard, "output", 6)) << "descriptor " << standard << " at " << name;
          }
          return 0;
      }) {
    close_range(0, 2, 0);
}

int FaultAtCall::operator()(std::string const& name) {
    bool const mayFail = *fault_.only == '\0' || std::string(fault_.only).find(" " + name + " ") != std::string::npos;
    if (!mayFail || (failed_.empty() ? --left_ != 0 : !fault_.lasts || failed_ != name)) {
        return 0;
    }
    failed_ = name;
    return fault_.answer;
}

void setWallClock(time_t now) {
    wallClock = now;
}

void setFileSystem(unsigned type) {
    fileSystem = type;
}

int hookedDescriptor() {
    return descriptorOfCall;
}

// A call that does nothing but be put to the hook: the parameters, then the descriptor and all arguments.
#define HOOKED(Result, name, parameters, ...)  \
    Result name parameters {                   \
        return call<name>(#name, __VA_ARGS__); \
    }

#pragma GCC visibility push(default)
extern "C" {

int open(char const* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = modeOf(flags, arguments);
    va_end(arguments);
    return call<open>("open", -1, path, flags, mode);
}

int openat(int folder, char const* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = modeOf(flags, arguments);
    va_end(arguments);
    return call<openat>("openat", folder, folder, path, flags, mode);
}

ssize_t write(int file, void const* bytes, size_t size) {
    int const answer = ask("write", file);
    if (answer > 0) {
        errno = answer;
        return -1;
    }
    return next<write>()(file, bytes, answer == halfOfIt && size > 1 ? size / 2 : size);
}

HOOKED(ssize_t, pread, (int file, void* bytes, size_t size, off_t offset), file, file, bytes, size, offset)
HOOKED(ssize_t, pwrite, (int file, void const* bytes, size_t size, off_t offset), file, file, bytes, size, offset)
HOOKED(int, fsync, (int file), file, file)
HOOKED(int, fdatasync, (int file), file, file)
HOOKED(int, fstat, (int file, struct stat* status) noexcept, file, file, status)
int fstatfs(int file, struct statfs* status) noexcept {
    int const result = call<fstatfs>("fstatfs", file, file, status);
    if (isHooked && fileSystem != 0) {
        status->f_type = static_cast<decltype(status->f_type)>(fileSystem);
    }
    return result;
}

HOOKED(int, fstatat, (int folder, char const* name, struct stat* status, int flags) noexcept, folder, folder, name,
       status, flags)
HOOKED(off_t, lseek, (int file, off_t offset, int from) noexcept, file, file, offset, from)
HOOKED(int, ftruncate, (int file, off_t size) noexcept, file, file, size)
HOOKED(int, fchmod, (int file, mode_t mode) noexcept, file, file, mode)
int posix_fallocate(int file, off_t offset, off_t size) {
    int const answer = ask("posix_fallocate", file);
    return answer > 0 ? answer : next<posix_fallocate>()(file, offset, size);
}

HOOKED(int, linkat, (int fromFolder, char const* from, int toFolder, char const* to, int flags) noexcept, fromFolder,
       fromFolder, from, toFolder, to, flags)
int flock(int file, int operation) noexcept {
    return call<flock>(operation == LOCK_UN ? "unlock" : "flock", file, file, operation);
}

HOOKED(int, mkdir, (char const* path, mode_t mode) noexcept, -1, path, mode)
HOOKED(int, renameat, (int fromFolder, char const* from, int toFolder, char const* to) noexcept, fromFolder, fromFolder,
       from, toFolder, to)
HOOKED(int, unlinkat, (int folder, char const* name, int flags) noexcept, folder, folder, name, flags)
int clock_gettime(clockid_t clock, struct timespec* now) noexcept {
    int const result = call<clock_gettime>("clock_gettime", -1, clock, now);
    if (isHooked && clock == CLOCK_MONOTONIC) {
        now->tv_sec += static_cast<time_t>(sleptNs / 1000000000);
    }
    if (isHooked && clock == CLOCK_REALTIME && wallClock >= 0) {
        *now = {wallClock, 0};
    }
    return result;
}

HOOKED(ssize_t, getrandom, (void* bytes, size_t size, unsigned flags), -1, bytes, size, flags)
int nanosleep(struct timespec const* time, struct timespec* left) {
    if (!isHooked) {
        return next<nanosleep>()(time, left);
    }
    sleptNs += static_cast<long long>(time->tv_sec) * 1000000000 + time->tv_nsec;
    return 0;
}
}
#undef HOOKED
#pragma GCC visibility pop
