#ifndef ZELQ_ELFSYMBOLS_H
#define ZELQ_ELFSYMBOLS_H

#include <link.h>
#include <cstddef>
#include <cstdint>

#include "common/systemcalls.h"

// The functions that a module's file names: also the static and hidden ones, and those of an
// executable, none of which the loader knows. Only files of the width of this code.

namespace zelq {

/// The function that covers an address.
struct ElfFunction {
    std::uintptr_t start;  ///< as linked: its address in memory minus the module's load bias
    char name[1024];       ///< mangled; a longer one is cut
};

/// The symbol table of one file.
///
/// Nothing in the file is trusted, and the file may change at any time: it is never mapped, only
/// read in pieces of bounded size, and each position is checked against the file's length. The
/// worst that a damaged file can do is a wrong name. Allocates nothing, and may change errno.
class ElfSymbols {
public:
    /// Opens a regular file in place of the one opened before. False when it cannot be read or has
    /// no symbol table; then find() finds nothing.
    bool open(char const* path);
    void close();

    /// Whether a loaded module was loaded from this file: a file that took the place of the one that
    /// was loaded (by an upgrade of a running program) would name the wrong functions.
    ///
    /// Compares headers and notes, the build id among them. `image` is where the module begins in
    /// memory; at least the first page there must be readable.
    bool isFileOf(void const* image, std::uintptr_t bias) const;

    /// Finds the function that covers `address`, given as linked. False when none does.
    bool find(std::uintptr_t address, ElfFunction& function) const;

private:
    struct Range {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
    };

    bool readTables();
    bool contains(Range range) const;
    bool read(std::uint64_t offset, void* target, std::size_t size) const;

    template <typename Entry, typename Visitor>
    bool forEach(Range table, Visitor visit) const;

    Descriptor descriptor_;
    std::uint64_t fileSize_ = 0;
    Range symbols_;  ///< .symtab, or .dynsym in a stripped file
    Range names_;    ///< the string table that belongs to it
};

}  // namespace zelq

#endif
