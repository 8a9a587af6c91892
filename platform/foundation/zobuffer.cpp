#include "zelqplatform/zobuffer.h"

#include <cstring>
#include <new>

ZoBuffer::ZoBuffer(char const* characters, unsigned long count) : ZoBuffer() {
    assign(characters, count);
}

ZoBuffer::ZoBuffer(ZoBuffer const& other) : ZoBuffer() {
    assign(other.contents_, other.length_);
}

ZoBuffer::ZoBuffer(ZoBuffer&& other) noexcept : ZoBuffer() {
    *this = static_cast<ZoBuffer&&>(other);
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): assign() takes its own contents
ZoBuffer& ZoBuffer::operator=(ZoBuffer const& other) {
    assign(other.contents_, other.length_);
    return *this;
}

ZoBuffer& ZoBuffer::operator=(ZoBuffer&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    if (other.contents_ == other.inline_) {
        // Fits whatever this buffer has, so nothing is allocated.
        std::memcpy(contents_, other.inline_, other.length_ + 1);
        length_ = other.length_;
        return *this;
    }
    if (contents_ != inline_) {
        delete[] contents_;
    }
    contents_ = other.contents_;
    length_ = other.length_;
    capacity_ = other.capacity_;
    other.contents_ = other.inline_;
    other.length_ = 0;
    other.capacity_ = inlineCapacity;
    other.inline_[0] = '\0';
    return *this;
}

void ZoBuffer::assign(char const* characters, unsigned long count) {
    if (count > capacity_) {
        grow(count, characters, count, 0);
        return;
    }
    if (count != 0) {
        std::memmove(contents_, characters, count);
    }
    contents_[count] = '\0';
    length_ = count;
}

void ZoBuffer::append(char const* characters, unsigned long count) {
    if (count > capacity_ - length_) {
        if (count > static_cast<unsigned long>(-1) / 2 - length_) {
            throw std::bad_alloc();
        }
        grow(length_ + count, characters, count, length_);
        return;
    }
    if (count != 0) {
        std::memmove(contents_ + length_, characters, count);
    }
    length_ += count;
    contents_[length_] = '\0';
}

// Moves to a larger heap run: `keep` characters of the old contents, then `count` new ones. The
// old run is released last, since `characters` may lie in it.
void ZoBuffer::grow(unsigned long needed, char const* characters, unsigned long count, unsigned long keep) {
    unsigned long const capacity = needed < 2 * capacity_ ? 2 * capacity_ : needed;
    char* const larger = new char[capacity + 1];
    std::memcpy(larger, contents_, keep);
    std::memcpy(larger + keep, characters, count);
    larger[needed] = '\0';
    if (contents_ != inline_) {
        delete[] contents_;
    }
    contents_ = larger;
    length_ = needed;
    capacity_ = capacity;
}
