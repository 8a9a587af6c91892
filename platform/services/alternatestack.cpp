#include "services/alternatestack.h"

#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>

namespace zelq {
namespace {

class AlternateStack {
public:
    AlternateStack() = default;
    ~AlternateStack() {
        if (gettid() != getpid()) {
            release(true);
        }
    }
    AlternateStack(AlternateStack const&) = delete;
    AlternateStack& operator=(AlternateStack const&) = delete;

    int make() {
        stack_t current{};
        if (sigaltstack(nullptr, &current) != 0) {
            return errno;
        }
        if ((current.ss_flags & SS_DISABLE) == 0) {
            return 0;
        }
        if (int const failure = memory_ == nullptr ? map() : 0; failure != 0) {
            return failure;
        }
        stack_t ours{};
        ours.ss_sp = bottom();
        ours.ss_size = alternateStackSize;
        return sigaltstack(&ours, nullptr) == 0 ? 0 : errno;
    }

    /// The program may have put its own stack in this one's place, to bring this one back later. So
    /// the memory of a stack that is not in force stays until the thread ends.
    void release(bool threadEnds) {
        if (memory_ == nullptr) {
            return;
        }
        stack_t current{};
        bool const inForce = sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0;
        if (inForce && current.ss_sp == bottom()) {
            stack_t none{};
            none.ss_flags = SS_DISABLE;
            if (sigaltstack(&none, nullptr) != 0) {
                return;  // this code runs on it
            }
        } else if (!threadEnds) {
            return;
        }
        munmap(memory_, guardSize() + alternateStackSize);
        memory_ = nullptr;
    }

private:
    static std::size_t guardSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }
    char* bottom() const { return static_cast<char*>(memory_) + guardSize(); }

    int map() {
        void* const memory = mmap(nullptr, guardSize() + alternateStackSize, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
        if (memory == MAP_FAILED) {
            return errno;
        }
        if (mprotect(memory, guardSize(), PROT_NONE) != 0) {
            int const failure = errno;
            munmap(memory, guardSize() + alternateStackSize);
            return failure;
        }
        memory_ = memory;
        return 0;
    }

    void* memory_ = nullptr;
};

thread_local AlternateStack alternateStack;

}  // namespace

int makeAlternateStack() {
    return alternateStack.make();
}

void releaseAlternateStack() {
    alternateStack.release(false);
}

}  // namespace zelq
