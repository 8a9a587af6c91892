#ifndef ZELQPLATFORM_ZOBUFFER_H
#define ZELQPLATFORM_ZOBUFFER_H

#include "zelqplatform/zobase.h"

/// A growing run of characters that is always followed by a zero byte.
///
/// Up to `inlineCapacity` characters live inside the object and cost no allocation. Longer runs
/// live on the heap. When an allocation fails, std::bad_alloc leaves the call and the buffer is
/// as it was before.
class ZELQ_API ZoBuffer : public ZoBase {
public:
    /// Characters that need no allocation, the zero byte not counted.
    static constexpr unsigned long inlineCapacity = 127;

    ZoBuffer() noexcept : contents_(inline_), length_(0), capacity_(inlineCapacity) { inline_[0] = '\0'; }
    ZoBuffer(char const* characters, unsigned long count);
    ZoBuffer(ZoBuffer const& other);
    ZoBuffer(ZoBuffer&& other) noexcept;
    ~ZoBuffer() {
        if (contents_ != inline_) {
            delete[] contents_;
        }
    }

    ZoBuffer& operator=(ZoBuffer const& other);
    ZoBuffer& operator=(ZoBuffer&& other) noexcept;

    /// The characters and their closing zero byte. Owned by the buffer; valid until it changes.
    char* contents() const noexcept { return contents_; }

    /// Number of characters, the closing zero byte not counted.
    unsigned long length() const noexcept { return length_; }

    /// Replaces the contents. `characters` may lie inside this buffer.
    void assign(char const* characters, unsigned long count);

    /// Adds to the end. `characters` may lie inside this buffer.
    void append(char const* characters, unsigned long count);

private:
    ZELQ_LOCAL void grow(unsigned long needed, char const* characters, unsigned long count, unsigned long keep);

    char* contents_;
    unsigned long length_;
    unsigned long capacity_;
    char inline_[inlineCapacity + 1];
};

#endif
