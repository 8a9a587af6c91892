#include "support/failingnew.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

thread_local unsigned countdown = 0;
thread_local bool failed = false;
thread_local int allowed = 0;
std::atomic<long> live{0};
std::atomic<unsigned long long> bytes{0};

// A program may count malloc() too; what new gets there has been counted. Compilers take malloc() for
// a function that sees nothing of this file, so it is called by a way that they cannot look through.
void* mallocUncounted(std::size_t size) {
    static void* (*volatile const function)(std::size_t) = std::malloc;
    NoFailingNew const uncounted;
    return function(size);
}

void* allocate(std::size_t size) noexcept {
    if (allocationFails()) {
        return nullptr;
    }
    void* const memory = mallocUncounted(size == 0 ? 1 : size);
    if (memory == nullptr) {
        return nullptr;
    }
    std::memset(memory, 0xA5, size);  // nothing may count on new memory being zero
    live += allowed == 0 ? 1 : 0;
    bytes += size;
    return memory;
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr && allowed == 0) {
        --live;
    }
    std::free(memory);
}

}  // namespace

void failAllocation(unsigned n) {
    countdown = n;
    failed = false;
}

bool allocationFails() {
    bool const fails = allowed == 0 && countdown != 0 && --countdown == 0;
    failed = failed || fails;
    return fails;
}

bool hasFailed() {
    return failed;
}

long liveAllocations() {
    return live;
}

unsigned long long allocatedBytes() {
    return bytes;
}

NoFailingNew::NoFailingNew() {
    ++allowed;
}

NoFailingNew::~NoFailingNew() {
    --allowed;
}

void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
