#include "services/alternatestack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>

namespace zelq {
namespace {

std::size_t guardSize() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void* bottomOf(void* memory) {
    return static_cast<char*>(memory) + guardSize();
}

void unmap(void* memory) {
    munmap(memory, guardSize() + alternateStackSize);
}

enum class When { now, atTheThreadsEnd };

/// The program may have put its own stack in this one's place, to bring this one back later. So the
/// memory of a stack that is not in force stays until the thread ends. Returns whether it is gone.
bool release(void* memory, When when) {
    stack_t current{};
    bool const inForce = sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0;
    if (inForce && current.ss_sp == bottomOf(memory)) {
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        if (sigaltstack(&none, nullptr) != 0) {
            return false;  // this code runs on it
        }
    } else if (when == When::now) {
        return false;
    }
    unmap(memory);
    return true;
}

// The memory of each thread's stack. Unlike the destructor of a thread_local, whose registration ends
// the program when there is no memory for it, a key tells.
pthread_key_t memoryKey;
bool const hasKey = pthread_key_create(&memoryKey, [](void* memory) { release(memory, When::atTheThreadsEnd); }) == 0;

int map(void*& memory) {
    memory = mmap(nullptr, guardSize() + alternateStackSize, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return errno;
    }
    int const failure = mprotect(memory, guardSize(), PROT_NONE) != 0 ? errno : pthread_setspecific(memoryKey, memory);
    if (failure != 0) {
        unmap(memory);
    }
    return failure;
}

}  // namespace

int makeAlternateStack() {
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0) {
        return errno;
    }
    if ((current.ss_flags & SS_DISABLE) == 0) {
        return 0;
    }
    if (!hasKey) {
        return EAGAIN;
    }
    void* memory = pthread_getspecific(memoryKey);
    if (int const failure = memory == nullptr ? map(memory) : 0; failure != 0) {
        return failure;
    }
    stack_t ours{};
    ours.ss_sp = bottomOf(memory);
    ours.ss_size = alternateStackSize;
    return sigaltstack(&ours, nullptr) == 0 ? 0 : errno;
}

void releaseAlternateStack() {
    void* const memory = hasKey ? pthread_getspecific(memoryKey) : nullptr;
    if (memory != nullptr && release(memory, When::now)) {
        pthread_setspecific(memoryKey, nullptr);
    }
}

}  // namespace zelq
