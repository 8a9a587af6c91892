#ifndef ZELQ_TRAPSERVICE_H
#define ZELQ_TRAPSERVICE_H

#include <atomic>
#include <csignal>
#include <cstdint>

#include "zelqplatform/pce_service.h"

// What the functions of the service change and its handler reads. The functions change it under a
// lock; the handler reads without one, because it may have interrupted the holder.

namespace zelq {

/// The registered exits. An exit keeps its slot as long as it is registered, so that a reader can
/// neither miss it nor meet it twice while others come and go; its number tells its place in the order.
class ExitTable {
public:
    // Result codes of the service. Under the lock only.
    int add(xpce_user_exit exit);
    int remove(xpce_user_exit exit);
    void clear();

    /// In the handler: calls all exits.
    void callAll(int signal, siginfo* info, void* context) const;

private:
    struct Slot {
        std::atomic<xpce_user_exit> exit;
        std::atomic<std::uint64_t> number;
    };
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    Slot slots_[XPCE_EXIT_MAX];
    std::uint64_t lastNumber_;
};

/// The kernel's signal set, which is smaller than the C library's.
using SignalBits = std::uint64_t;

/// A signal's action from before the setup. Its parts are atomic one by one: a thread that is still
/// in the handler while the service is unset and set up anew may see parts of two actions, no worse.
class PreviousAction {
public:
    void set(struct sigaction const& action);
    struct sigaction get() const;

    void setDefault() { function_.store(reinterpret_cast<std::uintptr_t>(SIG_DFL), std::memory_order_relaxed); }

private:
    std::atomic<std::uintptr_t> function_;
    std::atomic<int> flags_;
    std::atomic<SignalBits> mask_;
};

constexpr int trapSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int trapSignalCount = sizeof trapSignals / sizeof trapSignals[0];

// Never destroyed: program checks happen after static destruction too.
extern ExitTable exitTable;
extern PreviousAction previousActions[trapSignalCount];  ///< in the order of `trapSignals`

/// The action that puts the service's handler in force, and whether an action is this one.
struct sigaction trapAction();
bool isTrapAction(struct sigaction const& action);

/// In a child just forked: no other thread runs exits here.
void forgetOtherThreads();

}  // namespace zelq

#endif
