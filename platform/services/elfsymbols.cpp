#include "services/elfsymbols.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <iterator>

namespace zelq {
namespace {

using Header = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);
using SectionHeader = ElfW(Shdr);
using Symbol = ElfW(Sym);

// Small enough for the alternate stack of a signal handler.
constexpr std::size_t pieceSize = 4096;

// A sparse file may claim terabytes of symbols; no real module comes near this.
constexpr std::uint64_t maximalTableSize = 256U << 20;

bool isOfThisWidth(Header const& header) {
    constexpr unsigned char width = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    constexpr unsigned char order = __BYTE_ORDER == __LITTLE_ENDIAN ? ELFDATA2LSB : ELFDATA2MSB;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == width &&
           header.e_ident[EI_DATA] == order;
}

bool isFunction(Symbol const& symbol) {
    unsigned const type = symbol.st_info & 0xFU;  // the same bits in both widths
    return (type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != SHN_UNDEF;
}

}  // namespace

void ElfSymbols::close() {
    descriptor_.reset(-1);
    symbols_ = names_ = {};
}

bool ElfSymbols::open(char const* path) {
    close();
    // O_NONBLOCK: a pipe that took the file's place must not block the caller.
    descriptor_.reset(openApart([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status;
    if (descriptor_.get() >= 0 && fstat(descriptor_.get(), &status) == 0 && S_ISREG(status.st_mode)) {
        fileSize_ = static_cast<std::uint64_t>(status.st_size);
        if (readTables()) {
            return true;
        }
    }
    close();
    return false;
}

bool ElfSymbols::readTables() {
    Header header;
    if (!read(0, &header, sizeof header) || !isOfThisWidth(header) || header.e_shentsize != sizeof(SectionHeader)) {
        return false;
    }
    Range const sections = {header.e_shoff, std::uint64_t{header.e_shnum} * sizeof(SectionHeader)};
    SectionHeader chosen = {};
    bool const whole = forEach<SectionHeader>(sections, [&](SectionHeader const& section) {
        // .dynsym holds the exported part of .symtab
        if (section.sh_type == SHT_SYMTAB || (section.sh_type == SHT_DYNSYM && chosen.sh_type != SHT_SYMTAB)) {
            chosen = section;
        }
    });
    SectionHeader names;
    if (!whole || chosen.sh_entsize != sizeof(Symbol) || chosen.sh_link >= header.e_shnum ||
        !read(sections.offset + std::uint64_t{chosen.sh_link} * sizeof names, &names, sizeof names) ||
        names.sh_type != SHT_STRTAB) {
        return false;
    }
    symbols_ = {chosen.sh_offset, chosen.sh_size};
    names_ = {names.sh_offset, names.sh_size};
    return contains(symbols_) && symbols_.size <= maximalTableSize && contains(names_);
}

bool ElfSymbols::isFileOf(void const* image, std::uintptr_t bias) const {
    Header loaded;
    Header header;
    std::memcpy(&loaded, image, sizeof loaded);
    if (!isOfThisWidth(loaded) || !read(0, &header, sizeof header) ||
        std::memcmp(&loaded, &header, sizeof header) != 0 || loaded.e_phentsize != sizeof(ProgramHeader)) {
        return false;
    }
    Range const table = {loaded.e_phoff, std::uint64_t{loaded.e_phnum} * sizeof(ProgramHeader)};
    if (table.offset > pieceSize || table.size > pieceSize - table.offset) {
        return false;  // beyond the page that is known to be readable
    }
    char const* next = static_cast<char const*>(image) + table.offset;
    bool same = true;
    bool const whole = forEach<ProgramHeader>(table, [&](ProgramHeader const& segment) {
        same = same && std::memcmp(next, &segment, sizeof segment) == 0;
        next += sizeof segment;
        if (same && segment.p_type == PT_NOTE) {  // the loader's own copy is the same, so it is readable
            char piece[pieceSize];
            std::size_t const size = std::min<std::size_t>(segment.p_filesz, sizeof piece);
            auto const* const note = reinterpret_cast<void const*>(bias + segment.p_vaddr);
            same = read(segment.p_offset, piece, size) && std::memcmp(note, piece, size) == 0;
        }
    });
    return whole && same;
}

bool ElfSymbols::find(std::uintptr_t address, ElfFunction& function) const {
    Symbol found = {};
    forEach<Symbol>(symbols_, [&](Symbol const& symbol) {
        if (isFunction(symbol) && symbol.st_value <= address && address - symbol.st_value < symbol.st_size) {
            found = symbol;
        }
    });
    if (found.st_size == 0 || found.st_name >= names_.size) {
        return false;
    }
    std::uint64_t const length = std::min<std::uint64_t>(names_.size - found.st_name, sizeof function.name - 1);
    if (!read(names_.offset + found.st_name, function.name, static_cast<std::size_t>(length))) {
        return false;
    }
    function.name[length] = '\0';
    function.start = found.st_value;
    return function.name[0] != '\0';
}

bool ElfSymbols::contains(Range range) const {
    return range.offset <= fileSize_ && range.size <= fileSize_ - range.offset;
}

bool ElfSymbols::read(std::uint64_t offset, void* target, std::size_t size) const {
    if (!contains({offset, size})) {
        return false;
    }
    auto* next = static_cast<char*>(target);
    while (size != 0) {
        ssize_t const count =
            uninterrupted([&] { return pread(descriptor_.get(), next, size, static_cast<off_t>(offset)); });
        if (count <= 0) {
            return false;  // 0: the file has become shorter
        }
        next += count;
        offset += static_cast<std::uint64_t>(count);
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// False when the table does not lie within the file or cannot be read to its end.
template <typename Entry, typename Visitor>
bool ElfSymbols::forEach(Range table, Visitor visit) const {
    if (!contains(table)) {
        return false;
    }
    Entry entries[pieceSize / sizeof(Entry)];
    for (std::uint64_t left = table.size / sizeof(Entry); left != 0;) {
        auto const count = static_cast<std::size_t>(std::min<std::uint64_t>(left, std::size(entries)));
        if (!read(table.offset, entries, count * sizeof(Entry))) {
            return false;
        }
        std::for_each(entries, entries + count, visit);
        table.offset += count * sizeof(Entry);
        left -= count;
    }
    return true;
}

}  // namespace zelq
