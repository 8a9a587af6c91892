// Allocations of the C library fail and count as those by new do; not with AddressSanitizer, which has a
// malloc() of its own.

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

// An executable comes first in symbol look-up, so the libraries call these.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    return allocationFails() ? nullptr : counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return allocationFails() ? nullptr : counted(__libc_calloc(count, size));
}
void* realloc(void* old, std::size_t size) {
    void* const memory = allocationFails() ? nullptr : __libc_realloc(old, size);
    return old == nullptr ? counted(memory) : memory;
}
void free(void* memory) {
    live -= memory != nullptr;
    __libc_free(memory);
}
}

#endif
