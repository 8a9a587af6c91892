#include "services/trapservice.h"

#include <pthread.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/systemcalls.h"
#include "services/alternatestack.h"

namespace zelq {
namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
unsigned setups = 0;

class Locked {
public:
    Locked() { pthread_mutex_lock(&mutex); }
    ~Locked() { pthread_mutex_unlock(&mutex); }
    Locked(Locked const&) = delete;
    Locked& operator=(Locked const&) = delete;
};

// Whoever else held the lock is not in the child. There is nothing to take before the fork: an exit
// may fork, in a thread that holds it. A setup that another thread had begun is left half done, which
// install() can bear.
[[maybe_unused]] int const handlerRegistered = pthread_atfork(nullptr, nullptr, [] {
    mutex = PTHREAD_MUTEX_INITIALIZER;
    forgetOtherThreads();
});

struct Result {
    int result = XPCE_OK;
    int crc = 0;
};

int report(Result const& result, int* crc) {
    if (crc != nullptr) {
        *crc = result.crc;
    }
    return result.result;
}

void fill(void* area, struct sigaction const& action) {
    if (area != nullptr) {
        std::memcpy(area, &action, std::min<std::size_t>(sizeof action, XPCE_AREA_SIZE));
    }
}

// Remembers the action before the handler that needs it can run. An action of the service's own is
// none to go back to: a fork, or a program that puts back what it once found, can leave one behind.
int install(int signal, PreviousAction& previous) {
    struct sigaction found {};
    if (sigaction(signal, nullptr, &found) != 0) {
        return errno;
    }
    if (isTrapAction(found)) {
        return 0;
    }
    previous.set(found);
    struct sigaction const ours = trapAction();
    return sigaction(signal, &ours, nullptr) == 0 ? 0 : errno;
}

int restore(int signal, PreviousAction const& previous) {
    struct sigaction inForce {};
    if (sigaction(signal, nullptr, &inForce) != 0) {
        return errno;
    }
    if (!isTrapAction(inForce)) {
        return 0;
    }
    struct sigaction const action = previous.get();
    return sigaction(signal, &action, nullptr) == 0 ? 0 : errno;
}

Result installAll() {
    xpce_ckptr(&setups, sizeof setups, nullptr);  // exits will look at memory; the first look is costly
    if (int const failure = makeAlternateStack(); failure != 0) {
        return {XPCE_NO_STACK, failure};
    }
    for (int i = 0; setups == 0 && i < trapSignalCount; ++i) {
        if (int const failure = install(trapSignals[i], previousActions[i]); failure != 0) {
            while (i-- > 0) {
                restore(trapSignals[i], previousActions[i]);
            }
            releaseAlternateStack();
            return {XPCE_NO_ACTION, failure};
        }
    }
    return {};
}

Result restoreAll() {
    Result result;
    exitTable.clear();
    for (int i = 0; i < trapSignalCount; ++i) {
        if (int const failure = restore(trapSignals[i], previousActions[i]); failure != 0) {
            result = {XPCE_NO_ACTION, failure};
        }
    }
    releaseAlternateStack();
    return result;
}

Result usageOf(xpce_user_exit exit) {
    if (exit == nullptr) {
        return {XPCE_NO_EXIT, EINVAL};
    }
    return setups == 0 ? Result{XPCE_NOT_SET_UP, EPERM} : Result{};
}

}  // namespace

int ExitTable::add(xpce_user_exit exit) {
    Slot* free = nullptr;
    for (Slot& slot : slots_) {
        xpce_user_exit const registered = slot.exit.load(std::memory_order_relaxed);
        if (registered == exit) {
            return XPCE_ALREADY_REGISTERED;
        }
        if (registered == nullptr && free == nullptr) {
            free = &slot;
        }
    }
    if (free == nullptr) {
        return XPCE_TABLE_FULL;
    }
    free->exit.store(exit, std::memory_order_release);
    free->number.store(++lastNumber_, std::memory_order_release);
    return XPCE_OK;
}

int ExitTable::remove(xpce_user_exit exit) {
    for (Slot& slot : slots_) {
        if (slot.exit.load(std::memory_order_relaxed) == exit) {
            slot.number.store(0, std::memory_order_release);
            slot.exit.store(nullptr, std::memory_order_release);
            return XPCE_OK;
        }
    }
    return XPCE_NOT_REGISTERED;
}

void ExitTable::clear() {
    for (Slot& slot : slots_) {
        slot.number.store(0, std::memory_order_release);
        slot.exit.store(nullptr, std::memory_order_release);
    }
}

}  // namespace zelq

using namespace zelq;

int xpce_setup(unsigned short, void* areaA, void* areaB, int* crc) {
    ErrnoKeeper const keeper;
    Result result;
    struct sigaction saved[2];
    {
        Locked const locked;
        result = installAll();
        setups += result.result == XPCE_OK ? 1 : 0;
        saved[0] = previousActions[0].get();
        saved[1] = previousActions[1].get();
    }
    static_assert(trapSignals[0] == SIGSEGV && trapSignals[1] == SIGBUS);
    if (result.result == XPCE_OK) {
        fill(areaA, saved[0]);
        fill(areaB, saved[1]);
    }
    return report(result, crc);
}

int xpce_unset(void* area, int* crc) {
    ErrnoKeeper const keeper;
    Result result;
    struct sigaction inForce {};
    {
        Locked const locked;
        sigaction(SIGSEGV, nullptr, &inForce);
        if (setups == 0) {
            result = {XPCE_NOT_SET_UP, EPERM};
        } else if (--setups == 0) {
            result = restoreAll();
        }
    }
    if (result.result != XPCE_NOT_SET_UP) {
        fill(area, inForce);
    }
    return report(result, crc);
}

int xpce_add_user_exit(xpce_user_exit exit, int* crc) {
    ErrnoKeeper const keeper;
    Result result;
    {
        Locked const locked;
        result = usageOf(exit);
        if (int const failure = result.result == XPCE_OK ? makeAlternateStack() : 0; failure != 0) {
            result = {XPCE_NO_STACK, failure};
        }
        if (result.result == XPCE_OK) {
            result.result = exitTable.add(exit);
            result.crc = result.result == XPCE_TABLE_FULL ? ENOSPC : 0;
        }
    }
    return report(result, crc);
}

int xpce_remove_user_exit(xpce_user_exit exit, int* crc) {
    ErrnoKeeper const keeper;
    Result result;
    {
        Locked const locked;
        result = usageOf(exit);
        if (result.result == XPCE_OK) {
            result.result = exitTable.remove(exit);
        }
    }
    return report(result, crc);
}
