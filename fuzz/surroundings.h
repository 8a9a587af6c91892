#ifndef ZELQCOOD_FUZZ_SURROUNDINGS_H
#define ZELQCOOD_FUZZ_SURROUNDINGS_H

#include "common/utf8.h"
#include "entry.h"
#include "support/files.h"
#include "support/printed.h"

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
