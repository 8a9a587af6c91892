#ifndef ZELQ_SYSTEMCALLS_H
#define ZELQ_SYSTEMCALLS_H

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <utility>

// What system calls are made with. A function that can fail returns 0 or an errno, and hands out what it
// got in its last parameter.

namespace zelq {

/// A file descriptor that is closed at the end of its owner's life; -1 is none.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        swap(other);
        return *this;
    }
    ~Descriptor() { reset(-1); }

    int get() const noexcept { return number_; }
    void reset(int number) noexcept {
        if (number_ >= 0) {
            close(number_);
        }
        number_ = number;
    }
    void swap(Descriptor& other) noexcept { std::swap(number_, other.number_); }

private:
    int number_ = -1;
};

/// Puts errno back at the end of its life: reporting an error never changes it. Not for a frame that
/// a jump may leave.
class ErrnoKeeper {
public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(ErrnoKeeper const&) = delete;
    ErrnoKeeper& operator=(ErrnoKeeper const&) = delete;

private:
    int saved_;
};

/// Puts off a cancellation of the thread to the end of its life: most system calls are cancellation points, and a
/// thread cancelled in one leaves descriptors open and locks held, or ends the process in a function that may not
/// throw. Safe in a signal handler. Not for a frame that a jump may leave.
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &callersState_); }
    ~NoCancellation() { pthread_setcancelstate(callersState_, nullptr); }
    NoCancellation(NoCancellation const&) = delete;
    NoCancellation& operator=(NoCancellation const&) = delete;

private:
    int callersState_ = PTHREAD_CANCEL_ENABLE;
};

/// Makes a system call again for as long as a signal's handler interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Makes a system call that opens a file, which is then none of the standard descriptors 0 to 2: in a program
/// that was started without them, whatever it prints would get into the file. They fail meanwhile, as before.
template <typename Open>
int openApart(Open openFile) {
    constexpr int standardCount = 3;
    Descriptor places[standardCount];
    for (int number = 0; number < standardCount; ++number) {
        if (fcntl(number, F_GETFD) < 0) {
            places[number].reset(open("/", O_PATH | O_CLOEXEC));
        }
    }
    return openFile();
}

/// The time of a clock in nanoseconds; 0 when it cannot be read. Safe in a signal handler.
inline std::int64_t clockNs(clockid_t clock) noexcept {
    timespec now = {};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

}  // namespace zelq

#endif
