#ifndef ZELQCOOD_FUZZ_ENTRY_H
#define ZELQCOOD_FUZZ_ENTRY_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// What every fuzz entry defines. libFuzzer feeds the first function with inputs of its own; the
// program in replay.cpp feeds it with the seeds and with inputs that were kept.

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

/// Good inputs, which everything else grows from.
std::vector<std::string> seeds();

/// Ends the program with the text, and with a core of it.
[[noreturn]] inline void fail(std::string const& text) {
    std::fprintf(stderr, "FAILED: %s\n", text.c_str());
    std::abort();
}

inline void require(bool condition, char const* otherwise) {
    if (!condition) {
        fail(otherwise);
    }
}

#endif
