#ifndef ZELQ_STORE_JSONMEMORY_H
#define ZELQ_STORE_JSONMEMORY_H

#include <cstddef>
#include <cstring>
#include <new>

namespace zelq {

/// Memory for RapidJSON, which uses what an allocator returns without looking: this one throws
/// std::bad_alloc instead of returning null. The function names are RapidJSON's.
class JsonMemory {
public:
    static bool const kNeedFree = true;

    void* Malloc(std::size_t size) { return size == 0 ? nullptr : ::operator new(size); }

    /// When it throws, the original block still belongs to the caller.
    void* Realloc(void* original, std::size_t originalSize, std::size_t newSize) {
        void* const moved = Malloc(newSize);
        if (original != nullptr && moved != nullptr) {
            std::memcpy(moved, original, originalSize < newSize ? originalSize : newSize);
        }
        Free(original);
        return moved;
    }

    static void Free(void* block) { ::operator delete(block); }
};

}  // namespace zelq

#endif
