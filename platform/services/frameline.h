#ifndef ZELQ_FRAMELINE_H
#define ZELQ_FRAMELINE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "services/elfsymbols.h"

struct link_map;

namespace zelq {

/// One call on a stack.
struct Frame {
    std::uintptr_t address;  ///< where it goes on when what it called returns
    bool interrupted;        ///< it called nothing: a signal stopped it before the instruction at `address`
};

/// A zero-terminated text in memory from malloc(), which may be handed to C code.
class MallocText {
public:
    /// Throws std::bad_alloc, as append() does.
    explicit MallocText(std::size_t capacity);
    ~MallocText() { std::free(data_); }
    MallocText(MallocText const&) = delete;
    MallocText& operator=(MallocText const&) = delete;

    void append(char const* bytes, std::size_t count) {
        if (count >= capacity_ - size_) {
            grow(count);
        }
        std::memcpy(data_ + size_, bytes, count);
        size_ += count;
        data_[size_] = '\0';
    }

    std::size_t size() const { return size_; }

    /// Gives the memory away; the object is not usable afterwards.
    char* release();

private:
    void grow(std::size_t count);

    char* data_;
    std::size_t size_ = 0;
    std::size_t capacity_;  ///< bytes at data_; always more than size_
};

/// What stands before the line of a frame, "#0  ": its number, at least one blank, and columns up to #99.
struct FrameHead {
    char text[8];
    std::size_t size;
};

constexpr FrameHead frameHead(std::size_t number) {
    FrameHead head = {{'#', ' ', ' ', ' ', ' ', ' ', ' ', ' '}, 1};
    for (std::size_t unit = number >= 100 ? 100 : number >= 10 ? 10 : 1; unit != 0; unit /= 10) {
        head.text[head.size++] = static_cast<char>('0' + number / unit % 10);
    }
    head.size = head.size + 1 < 4 ? 4 : head.size + 1;
    return head;
}

/// Appends a line behind the number of its frame, and before it a newline unless it is the first.
void appendNumbered(MallocText& text, std::size_t number, std::string const& line);

/// Writes the lines of frames, without their numbers:
///
///     0x565561f9  readText(char const*)+0x29  [readfiles+0x11f9]
///
/// A function or module that cannot be told is "??" or missing. The module is given by its base
/// name, which is what a copy of it on another machine is found by; the offset behind it is the
/// address as linked, as programs that read debug information take it.
///
/// An object serves one stack, and keeps the file open that it looked into last.
class FrameDescriber {
public:
    /// Throws std::bad_alloc. May change errno, and contains cancellation points.
    std::string describe(Frame frame);

private:
    bool findInFile(link_map const& module, void const* image, std::uintptr_t address, ElfFunction& function);

    ElfSymbols symbols_;
    link_map const* symbolsOf_ = nullptr;  ///< whose file was tried last, with success or without
};

}  // namespace zelq

#endif
