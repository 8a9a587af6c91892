#include "services/frameline.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "common/text.h"
#include "zelqplatform/errorlog_items.h"

namespace zelq {
namespace {

// Names of instantiated templates may be of any length; a reader needs only their beginning.
constexpr std::size_t nameLimit = 256;

std::string hexadecimal(std::uintptr_t value, int digits = 1) {
    return "0x" + hexDigits(value, digits);
}

// A name comes from a file: none of its bytes may end the line or steer a terminal.
void appendName(std::string& line, char const* name) {
    std::size_t const length = strnlen(name, nameLimit + 1);
    for (std::size_t i = 0; i < length && i < nameLimit; ++i) {
        auto const byte = static_cast<unsigned char>(name[i]);
        line += isControl(&byte, 1) ? '?' : name[i];
    }
    if (length > nameLimit) {
        line += "...";
    }
}

void appendFunction(std::string& line, char const* name) {
    // A C function may have the name of a mangled type: "i" would come out as "int".
    if (std::strncmp(name, "_Z", 2) != 0) {
        return appendName(line, name);
    }
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const plain(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    constexpr int noMemory = -1;
    if (status == noMemory) {
        throw std::bad_alloc();
    }
    appendName(line, plain != nullptr ? plain.get() : name);
}

bool isProgram(link_map const& module) {
    return module.l_name[0] == '\0';
}

void appendModule(std::string& line, link_map const& module) {
    char path[4096];
    char const* name = module.l_name;
    if (isProgram(module)) {  // argv[0], for want of a name, may be anything
        ssize_t const length = readlink("/proc/self/exe", path, sizeof path - 1);
        path[length > 0 ? length : 0] = '\0';
        if (char* const note = std::strstr(path, " (deleted)"); note != nullptr && note[10] == '\0') {
            *note = '\0';
        }
        name = length > 0 ? path : program_invocation_short_name;
    }
    char const* const slash = std::strrchr(name, '/');
    appendName(line, slash != nullptr ? slash + 1 : name);
}

}  // namespace

std::string FrameDescriber::describe(Frame frame) {
    constexpr int digits = sizeof(void*) == 8 ? 12 : 8;  // of any address that programs see
    std::string line = hexadecimal(frame.address, digits) + "  ";
    // A call may be the last instruction of its function, which then returns into another one.
    std::uintptr_t const within = frame.interrupted ? frame.address : frame.address - 1;

    Dl_info known = {};
    void* extra = nullptr;
    if (dladdr1(reinterpret_cast<void*>(within), &known, &extra, RTLD_DL_LINKMAP) == 0 || extra == nullptr) {
        return line + "??";
    }
    auto const& module = *static_cast<link_map const*>(extra);
    std::uintptr_t const bias = module.l_addr;
    ElfFunction function;
    if (known.dli_sname != nullptr) {
        appendFunction(line, known.dli_sname);
        line += '+' + hexadecimal(frame.address - reinterpret_cast<std::uintptr_t>(known.dli_saddr));
    } else if (findInFile(module, known.dli_fbase, within - bias, function)) {
        appendFunction(line, function.name);
        line += '+' + hexadecimal(frame.address - bias - function.start);
    } else {
        line += "??";
    }
    line += "  [";
    appendModule(line, module);
    return line + '+' + hexadecimal(frame.address - bias) + ']';
}

bool FrameDescriber::findInFile(link_map const& module, void const* image, std::uintptr_t address,
                                ElfFunction& function) {
    if (symbolsOf_ != &module) {
        symbolsOf_ = &module;
        // The link leads to the program's file even when that was moved or deleted.
        if (symbols_.open(isProgram(module) ? "/proc/self/exe" : module.l_name) &&
            !symbols_.isFileOf(image, module.l_addr)) {
            symbols_.close();
        }
    }
    return symbols_.find(address, function);
}

MallocText::MallocText(std::size_t capacity) : data_(static_cast<char*>(std::malloc(capacity))), capacity_(capacity) {
    if (data_ == nullptr) {
        throw std::bad_alloc();
    }
}

void MallocText::grow(std::size_t count) {
    std::size_t const capacity = std::max(capacity_ * 2, size_ + count + 1);
    auto* const data = static_cast<char*>(std::realloc(data_, capacity));
    if (data == nullptr) {
        throw std::bad_alloc();
    }
    data_ = data;
    capacity_ = capacity;
}

char* MallocText::release() {
    return std::exchange(data_, nullptr);
}

void appendNumbered(MallocText& text, std::size_t number, std::string const& line) {
    constexpr FrameHead first = frameHead(0);
    static_assert(std::string_view(first.text, first.size) == std::string_view(xlog_first_frame).substr(0, first.size),
                  "backtraces are recognised by it");
    FrameHead const head = frameHead(number);
    if (text.size() != 0) {
        text.append("\n", 1);
    }
    text.append(head.text, head.size);
    text.append(line.data(), line.size());
}

}  // namespace zelq
