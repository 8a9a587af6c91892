#ifndef ZELQCOOD_FUZZ_SURROUNDINGS_H
#define ZELQCOOD_FUZZ_SURROUNDINGS_H

#include <sys/mman.h>
#include <unistd.h>

#include "common/text.h"
#include "entry.h"
#include "support/files.h"

/// Takes the place of standard output, and gives what was printed since the last time.
class Printed {
public:
    Printed() : file_(memfd_create("printed", MFD_CLOEXEC)) { dup2(file_, STDOUT_FILENO); }

    std::string take() {
        std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_CUR)), '\0');
        require(pread(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "no printed text");
        require(ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0, "standard output is gone");
        return text;
    }

private:
    int file_;
};

/// Whatever programs put into a record or a line, a terminal gets valid text with nothing to obey.
inline void requireHarmless(std::string const& text) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text.data());
    for (std::size_t i = 0, length = 0; i < text.size(); i += length) {
        length = zelq::utf8Length(bytes + i, text.size() - i);
        require(length != 0, "printed what is not UTF-8");
        require(bytes[i] >= 0x20 || bytes[i] == '\n' || bytes[i] == '\t', "printed a control character");
        require(bytes[i] != 0x7F && !(bytes[i] == 0xC2 && bytes[i + 1] < 0xA0), "printed a control character");
    }
}

/// The folder that store and ring of this process lie in; it goes with the process.
class StateFolder : public TemporaryFolder {
public:
    StateFolder() { setenv("ZELQ_DIR", path().c_str(), 1); }
};

#endif
