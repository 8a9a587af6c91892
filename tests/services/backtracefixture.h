#ifndef ZELQ_TEST_BACKTRACEFIXTURE_H
#define ZELQ_TEST_BACKTRACEFIXTURE_H

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/failingnew.h"
#include "zelqplatform/errorlog_service.h"

// Backtraces as the service gives them, and as frames that can be compared.

namespace backtracetest {

using Callback = void (*)(void*);

struct Captured {
    int result = -1;
    int length = -1;
    bool hasText = false;
    bool hasFailed = false;
    std::string text;
};

struct Line {
    std::size_t number;
    std::uintptr_t address;
    std::string function;
    std::uintptr_t offset;
    std::string module;
    std::uintptr_t moduleOffset;
};

inline std::uintptr_t hexadecimal(std::string const& text) {
    return text.empty() ? 0 : static_cast<std::uintptr_t>(std::stoull(text, nullptr, 16));
}

inline std::vector<Line> parse(std::string const& text) {
    static std::regex const pattern(
        R"(#(\d+) +(0x[0-9a-f]+)  (\?\?|(\S.*)\+(0x[0-9a-f]+))(  \[([^/]+)\+(0x[0-9a-f]+)\])?)");
    std::vector<Line> lines;
    std::istringstream input(text);
    for (std::string row; std::getline(input, row);) {
        std::smatch match;
        if (std::regex_match(row, match, pattern)) {
            std::string const function = match[4].matched ? match[4] : match[3];
            lines.push_back({std::stoul(match[1]), hexadecimal(match[2]), function, hexadecimal(match[5]), match[7],
                             hexadecimal(match[8])});
        } else {
            ADD_FAILURE() << "not a frame: " << row;
        }
    }
    return lines;
}

__attribute__((noipa)) inline Captured captured(int skip, unsigned failingAllocation = 0) {
    Captured result;
    char* text = nullptr;
    failAllocation(failingAllocation);
    result.result = xlog_get_backtrace(&text, skip, &result.length);
    result.hasFailed = hasFailed();
    failAllocation(0);
    result.hasText = text != nullptr;
    result.text = text != nullptr ? text : "";
    std::free(text);
    return result;
}

inline std::string functions(std::vector<Line> const& lines, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count && i < lines.size(); ++i) {
        all += lines[i].function + '\n';
    }
    return all;
}

/// A module, loaded as long as the object lives.
class Module {
public:
    Module(char const* path, char const* function)
        : handle_(dlopen(path, RTLD_NOW)),
          call(handle_ == nullptr ? nullptr : reinterpret_cast<void (*)(Callback, void*)>(dlsym(handle_, function))) {}
    ~Module() { dlclose(handle_); }
    Module(Module const&) = delete;
    Module& operator=(Module const&) = delete;

private:
    void* handle_;

public:
    void (*const call)(Callback, void*);
};

// Each change of the loaded modules makes the service forget.
inline void forgetLines() {
    Module const module(OTHER_MODULE, "otherModuleCall");
}

}  // namespace backtracetest

#endif
