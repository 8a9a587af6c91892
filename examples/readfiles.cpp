// Reads the text files named on the command line. Each one that cannot be used is reported as an
// error log: what was tried as a text item, and what came back as raw bytes.

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "zelqcood/log.h"
#include "zelqcood/trace.h"

namespace {

const char traceMask[] = "RDFILES";

// Block ids of this program's own binary items.
enum : unsigned short { errnoItem = 0x10, firstBytesItem = 0x11 };

void report(char const* path, char const* eventName, std::string text, XLogData const& evidence) {
    XLog log(0x01, 0x10, 0x2000, eventName, XLog::error | XLog::logStandardBlock, path);
    log.addData(XMicrocodeLogData(&text[0], text.size(), XMicrocodeLogData::textFormat));
    log.addData(evidence);
    log.log();
    std::printf("  %-12s %s\n", eventName, text.c_str());
}

void reportErrno(char const* path, char const* eventName, char const* operation, int failure) {
    report(path, eventName, std::string(operation) + " '" + path + "': " + std::strerror(failure),
           XLogData(&failure, sizeof failure, errnoItem));
}

bool readText(char const* path) {
    XTrace scope(traceMask, 'F', "readText");
    XTrace::write(traceMask, 'D', path);
    int const file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        reportErrno(path, "OPENFAILED", "cannot open", errno);
        return false;
    }
    char bytes[4096];
    ssize_t const count = read(file, bytes, sizeof bytes);
    int const failure = errno;
    close(file);
    if (count < 0) {
        reportErrno(path, "READFAILED", "cannot read", failure);
        return false;
    }
    auto const length = static_cast<std::size_t>(count);
    if (std::memchr(bytes, 0, length) != nullptr) {
        report(path, "NOTEXT", std::string("no text in '") + path + "'",
               XLogData(bytes, length < 32 ? length : 32, firstBytesItem));
        return false;
    }
    std::printf("  %-12s '%s' begins with %zu bytes of text\n", "ok", path, length);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int failures = 0;
    for (int i = 1; i < argc; ++i) {
        failures += readText(argv[i]) ? 0 : 1;
    }
    return failures == 0 ? 0 : 1;
}
