#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <csetjmp>
#include <cstring>
#include <ctime>
#include <type_traits>

#include "common/systemcalls.h"
#include "services/trapservice.h"

// Everything here may run as a signal handler, and the library is linked to be bound when it is
// loaded: a call from here never enters the dynamic linker.

namespace zelq {

__constinit ExitTable exitTable;
__constinit PreviousAction previousActions[trapSignalCount];
static_assert(std::is_trivially_destructible_v<ExitTable> && std::is_trivially_destructible_v<PreviousAction>);

void ExitTable::callAll(int signal, siginfo* info, void* context) const {
    for (std::uint64_t called = 0;;) {
        Slot const* next = nullptr;
        std::uint64_t nextNumber = UINT64_MAX;
        for (Slot const& slot : slots_) {
            std::uint64_t const number = slot.number.load(std::memory_order_acquire);
            if (number > called && number < nextNumber) {
                next = &slot;
                nextNumber = number;
            }
        }
        if (next == nullptr) {
            return;
        }
        called = nextNumber;
        xpce_user_exit const exit = next->exit.load(std::memory_order_acquire);
        // Another number, and the slot has been given away: what it holds now has a later turn.
        if (exit != nullptr && next->number.load(std::memory_order_acquire) == called) {
            exit(signal, info, context);
        }
    }
}

namespace {

constexpr timespec waitStep = {0, 10000000};

sigset_t toSet(SignalBits bits) {
    sigset_t set;
    sigemptyset(&set);
    std::memcpy(&set, &bits, sizeof bits);
    return set;
}

SignalBits toBits(sigset_t const& set) {
    SignalBits bits;
    std::memcpy(&bits, &set, sizeof bits);
    return bits;
}

sigset_t trapSignalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : trapSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

/// The thread that runs the exits, by its process: a child made with vfork() or clone() shares or
/// copies this, and what it leaves behind must not look like a thread of this process. 0: none.
std::atomic<pid_t> exitsRunIn{0};

/// The program check for which the exits run. Only their thread touches it.
struct Current {
    int signal;
    siginfo_t info;  // a copy: the original is lost when an exit overflows the alternate stack
    void* context;
    sigjmp_buf afterExits;
} current;

struct FaultPlace {
    int signal = 0;
    int code = 0;
    void* address = nullptr;
    std::uintptr_t instruction = 0;
};

bool operator==(FaultPlace const& left, FaultPlace const& right) {
    return left.signal == right.signal && left.code == right.code && left.address == right.address &&
           left.instruction == right.instruction;
}

struct ThreadState {
    pid_t runsExitsIn = 0;  // as exitsRunIn; 0 when this thread runs none
    FaultPlace lastFault;
};

// Any other model may allocate at a thread's first access.
thread_local ThreadState thisThread __attribute__((tls_model("initial-exec")));

std::uintptr_t instructionOf(void* context) {
    auto const& registers = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    return static_cast<std::uintptr_t>(registers.gregs[REG_RIP]);
#elif defined(__i386__)
    return static_cast<std::uintptr_t>(registers.gregs[REG_EIP]);
#else
#error "name the register that points to the failing instruction"
#endif
}

bool isFault(siginfo_t const& info) {
    return info.si_code > 0;  // what processes send has 0 or less
}

PreviousAction& previousActionOf(int signal) {
    int index = 0;
    while (trapSignals[index] != signal) {
        ++index;
    }
    return previousActions[index];
}

/// Repeating the instruction would do for most faults, but not for signals that were sent, nor for a
/// fault that another thread has mended by now. So the same signal is sent again, with its siginfo;
/// it takes effect when it is unblocked, at the latest when the handler returns to the instruction.
void sendAgainWithDefault(int signal, siginfo_t* info) {
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    sigaction(signal, &byDefault, nullptr);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0) {
        syscall(SYS_tgkill, getpid(), gettid(), signal);
    }
}

void runExits(int signal, siginfo_t* info, void* context, pid_t process) {
    current.signal = signal;
    current.info = *info;
    current.context = context;
    thisThread.runsExitsIn = process;
    sigset_t const traps = trapSignalSet();
    if (sigsetjmp(current.afterExits, 0) == 0) {
        // A fault whose signal is blocked would end the process without looking back.
        pthread_sigmask(SIG_UNBLOCK, &traps, nullptr);
        exitTable.callAll(signal, info, context);
    }
    sigset_t const blocked = trapSignalSet();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    thisThread.runsExitsIn = 0;
}

/// An exit took a program check. Stacks grow down: when this signal's frame is not below that of the
/// first, the exit has used up the alternate stack and the kernel began it anew, over the frames that
/// there would be to return to.
[[noreturn]] void leaveExits(void* context) {
    if (reinterpret_cast<std::uintptr_t>(context) < reinterpret_cast<std::uintptr_t>(current.context)) {
        siglongjmp(current.afterExits, 1);
    }
    sendAgainWithDefault(current.signal, &current.info);
    sigset_t const traps = trapSignalSet();
    pthread_sigmask(SIG_UNBLOCK, &traps, nullptr);
    _exit(128 + current.signal);  // sending may be forbidden, and there is no way back
}

/// Returns whether the other thread came to the end of its exits in time.
bool waitForOtherThread(pid_t process) {
    std::int64_t const end = clockNs(CLOCK_MONOTONIC) + XPCE_WAIT_SECONDS * std::int64_t{1000000000};
    while (clockNs(CLOCK_MONOTONIC) < end) {
        nanosleep(&waitStep, nullptr);
        if (exitsRunIn.load(std::memory_order_acquire) != process) {
            return true;
        }
    }
    return false;
}

enum class Exits { ran, runInOtherThread };

Exits tryToRunExits(int signal, siginfo_t* info, void* context) {
    pid_t const process = getpid();
    pid_t expected = exitsRunIn.load(std::memory_order_relaxed);
    if (expected == process || !exitsRunIn.compare_exchange_strong(expected, process, std::memory_order_acquire)) {
        return Exits::runInOtherThread;
    }
    runExits(signal, info, context, process);
    return Exits::ran;
}

bool isHandler(struct sigaction const& action) {
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

/// Stands in the signal's frame while the previous action's handler is called: one that calls this
/// handler in turn, as those do that were installed over the service's while it was unset and set up
/// again, comes with the same frame. The kernel makes the frame without the mark and does not look at
/// it, so however that handler is left, no later program check finds a mark.
ucontext_t*& markOf(void* context) {
    return static_cast<ucontext_t*>(context)->uc_link;
}

void callPrevious(struct sigaction const& action, int signal, siginfo_t* info, void* context) {
    PreviousAction& previous = previousActionOf(signal);
    if ((action.sa_flags & static_cast<int>(SA_RESETHAND)) != 0) {
        previous.setDefault();
    }
    // The kernel writes no more of the interrupted mask than its own signal set.
    SignalBits bits = toBits(static_cast<ucontext_t*>(context)->uc_sigmask) | toBits(action.sa_mask);
    if ((action.sa_flags & SA_NODEFER) == 0) {
        bits |= SignalBits{1} << (signal - 1);
    }
    sigset_t const mask = toSet(bits);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    markOf(context) = reinterpret_cast<ucontext_t*>(&previous);
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        action.sa_sigaction(signal, info, context);
    } else {
        action.sa_handler(signal);
    }
    markOf(context) = nullptr;
}

void handleTrap(int signal, siginfo_t* info, void* context) {
    if (thisThread.runsExitsIn == getpid()) {
        if (isFault(*info)) {
            leaveExits(context);
        }
        return;
    }
    struct sigaction const previous = previousActionOf(signal).get();
    if (previous.sa_handler == SIG_IGN && !isFault(*info)) {
        return;
    }
    bool const calledByPrevious = markOf(context) != nullptr;
    FaultPlace const place = {signal, info->si_code, info->si_addr, instructionOf(context)};
    bool const isRepeated = isFault(*info) && place == thisThread.lastFault;
    bool mayChain = isHandler(previous) && !calledByPrevious;
    if (!calledByPrevious && !isRepeated) {
        thisThread.lastFault = place;
        if (tryToRunExits(signal, info, context) == Exits::runInOtherThread) {
            mayChain = waitForOtherThread(getpid()) && mayChain;
        } else if (mayChain) {
            exitsRunIn.store(0, std::memory_order_release);
        }
        // Otherwise the process ends now, and other threads wait for that.
    }
    if (mayChain) {
        callPrevious(previous, signal, info, context);
        return;
    }
    sendAgainWithDefault(signal, info);
}

void onTrap(int signal, siginfo_t* info, void* context) noexcept {
    int const callersErrno = errno;
    // Blocked by the action already, unless another handler has called this one.
    sigset_t const traps = trapSignalSet();
    sigset_t callersMask;
    pthread_sigmask(SIG_BLOCK, &traps, &callersMask);
    handleTrap(signal, info, context);
    pthread_sigmask(SIG_SETMASK, &callersMask, nullptr);
    errno = callersErrno;
}

}  // namespace

void PreviousAction::set(struct sigaction const& action) {
    function_.store(reinterpret_cast<std::uintptr_t>(action.sa_sigaction), std::memory_order_relaxed);
    flags_.store(action.sa_flags, std::memory_order_relaxed);
    mask_.store(toBits(action.sa_mask), std::memory_order_relaxed);
}

struct sigaction PreviousAction::get() const {
    struct sigaction action {};
    action.sa_sigaction = reinterpret_cast<xpce_user_exit>(function_.load(std::memory_order_relaxed));
    action.sa_flags = flags_.load(std::memory_order_relaxed);
    action.sa_mask = toSet(mask_.load(std::memory_order_relaxed));
    return action;
}

struct sigaction trapAction() {
    struct sigaction action {};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    action.sa_mask = trapSignalSet();
    return action;
}

bool isTrapAction(struct sigaction const& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == onTrap;
}

void forgetOtherThreads() {
    // An exit may fork, to have its report written by the child.
    pid_t const process = thisThread.runsExitsIn != 0 ? getpid() : 0;
    thisThread.runsExitsIn = process;
    exitsRunIn.store(process, std::memory_order_relaxed);
}

}  // namespace zelq
