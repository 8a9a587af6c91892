// Allocations of the C library fail and count as those by new do; not with AddressSanitizer, which has a
// malloc() of its own.

#include <dlfcn.h>
#include <cstdlib>

#include "support/failingnew.h"

#ifndef __SANITIZE_ADDRESS__

namespace {

thread_local long live = 0;

void* counted(void* memory) {
    live += memory != nullptr;
    return memory;
}

}  // namespace

long liveMallocs() {
    return live;
}

// An executable comes first in symbol look-up, so the libraries call these. The C library's are asked
// for by name: valgrind puts its own in their place.
#define NEXT(function) static auto* const next = reinterpret_cast<decltype(&::function)>(dlsym(RTLD_NEXT, #function))

extern "C" {
void* malloc(std::size_t size) {
    NEXT(malloc);
    return allocationFails() ? nullptr : counted(next(size));
}
void* calloc(std::size_t count, std::size_t size) {
    NEXT(calloc);
    return allocationFails() ? nullptr : counted(next(count, size));
}
void* realloc(void* old, std::size_t size) {
    NEXT(realloc);
    void* const memory = allocationFails() ? nullptr : next(old, size);
    return old == nullptr ? counted(memory) : memory;
}
void free(void* memory) {
    NEXT(free);
    live -= memory != nullptr;
    next(memory);
}
}

#endif
