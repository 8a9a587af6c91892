#ifndef ZELQ_FRAMELINE_H
#define ZELQ_FRAMELINE_H

#include <cstdint>
#include <string>

#include "services/elfsymbols.h"

struct link_map;

namespace zelq {

/// One call on a stack.
struct Frame {
    std::uintptr_t address;  ///< where it goes on when what it called returns
    bool interrupted;        ///< it called nothing: a signal stopped it before the instruction at `address`
};

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
