// A service with two stages: it installs an update, for which it reads a package. Each stage that
// fails writes a microcode log; the lower stage's log is merged into the upper one's, so that one
// record tells what went wrong, what that made impossible, and what led up to both.

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "zelqcood/mclog.h"
#include "zelqcood/trace.h"

namespace {

const char traceMask[] = "UPDATER";

// The service's own numbers for what can fail.
enum : unsigned char { updateLogType = 0x41, packageLogType = 0x42 };
enum : unsigned short { updateUser = 0x4100, updateFailed = 0x0011, packageMissing = 0x0021, packageCut = 0x0022 };

constexpr unsigned char packageHeaderSize = 64;

// A log of the lower stage gives way to nobody: what it found is the cause.
std::unique_ptr<XEndMicrocodeLog> packageLog(unsigned short errorId, int reason, std::string const& text) {
    return std::make_unique<XEndMicrocodeLog>(packageLogType, updateUser, errorId, reason, "PACKAGE", text.c_str(),
                                              XLog::error, 1, "update package");
}

// The lower stage. Returns null when all is well.
std::unique_ptr<XEndMicrocodeLog> readPackage(char const* path) {
    XTrace scope(traceMask, 'F', "readPackage");
    int const file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        int const failure = errno;
        return packageLog(packageMissing, failure,
                          std::string("cannot open '") + path + "': " + std::strerror(failure));
    }
    unsigned char header[packageHeaderSize];
    ssize_t const count = read(file, header, sizeof header);
    close(file);
    XTrace::dumpBytes(traceMask, 'D', "header", header, count < 0 ? 0 : static_cast<unsigned long>(count));
    if (count != packageHeaderSize) {
        auto log = packageLog(packageCut, static_cast<int>(count), std::string("'") + path + "' is cut off");
        log->addData(XMicrocodeLogData(header, count < 0 ? 0 : static_cast<unsigned long>(count),
                                       XMicrocodeLogData::binaryFormat));
        return log;
    }
    return nullptr;
}

// The upper stage.
bool installUpdate(char const* path) {
    XTrace scope(traceMask, 'F', "installUpdate");
    std::unique_ptr<XEndMicrocodeLog> const cause = readPackage(path);
    if (cause == nullptr) {
        std::printf("  installed '%s'\n", path);
        return true;
    }
    XEndMicrocodeLog log(updateLogType, updateUser, updateFailed, 0, "UPDATE", "the update was not installed",
                         XLog::error, 0, path);
    log += *cause;
    log.log();
    std::printf("  could not install '%s': recorded\n", path);
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    int failures = 0;
    for (int i = 1; i < argc; ++i) {
        failures += installUpdate(argv[i]) ? 0 : 1;
    }
    return failures == 0 ? 0 : 1;
}
