// A parent process with two workers. The first one throws an exception that carries a log; it
// crosses the process border as a block, and the parent renders and records it. The second one dies
// of a bad memory access: its user exit leaves a message, and its exit status stays true.

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "zelqcood/trap.h"

namespace {

enum : unsigned char { workerLogType = 0x51 };
enum : unsigned short { workerUser = 0x5100, jobFailed = 0x0031 };

void say(char const* text) {
    std::printf("  %s\n", text);
    std::fflush(stdout);  // before a fork, which would repeat it
}

[[noreturn, gnu::noinline]] void failJob() {
    XException failure("job 7 has no input", ZoException::unrecoverable, 0);
    failure.addLocation(ZoExceptionLocation("workers.cpp", __func__, __LINE__));
    XEndMicrocodeLog log(workerLogType, workerUser, jobFailed, 7, "JOBFAILED", "worker 1", XLog::error, 1, "job 7");
    failure.setLogInfo(&log);
    throw failure;
}

void writeBlock(int pipeEnd, unsigned char const* block) {
    unsigned int size = 0;
    std::memcpy(&size, block, sizeof size);
    while (size != 0) {
        ssize_t const count = write(pipeEnd, block, size);
        if (count <= 0) {
            _exit(2);
        }
        block += count;
        size -= static_cast<unsigned int>(count);
    }
}

[[noreturn]] void firstWorker(int pipeEnd) {
    try {
        failJob();
    } catch (XException const& failure) {
        std::unique_ptr<unsigned char[]> const block(failure.asBinary());
        writeBlock(pipeEnd, block.get());
    }
    _exit(1);
}

// Runs as a signal handler: nothing but calls that are safe there.
void lastWords(int, siginfo*, void*) {
    char const text[] = "  worker 2: program check, last words from the user exit\n";
    ssize_t const ignored = write(STDOUT_FILENO, text, sizeof text - 1);
    static_cast<void>(ignored);
}

[[noreturn]] void secondWorker() {
    XTrapHandler const handler(XTrapHandler::serviceProcess, lastWords);
    volatile int* volatile nowhere = reinterpret_cast<volatile int*>(16);  // an address without memory
    *nowhere = 1;
    _exit(0);
}

std::vector<unsigned char> readAll(int pipeEnd) {
    std::vector<unsigned char> bytes;
    unsigned char part[4096];
    for (ssize_t count = 0; (count = read(pipeEnd, part, sizeof part)) > 0;) {
        bytes.insert(bytes.end(), part, part + count);
    }
    return bytes;
}

bool isWholeBlock(std::vector<unsigned char> const& bytes) {
    unsigned int size = 0;
    if (bytes.size() < 8) {
        return false;
    }
    std::memcpy(&size, bytes.data(), sizeof size);
    return size == bytes.size();
}

}  // namespace

int main() {
    int ends[2];
    if (pipe(ends) != 0) {
        return 1;
    }
    say("worker 1 starts a job");
    pid_t const first = fork();
    if (first == 0) {
        firstWorker(ends[1]);
    }
    close(ends[1]);
    std::vector<unsigned char> bytes = readAll(ends[0]);
    waitpid(first, nullptr, 0);
    if (!isWholeBlock(bytes)) {
        say("worker 1 sent no whole block");
        return 1;
    }
    XException failure(bytes.data());
    std::printf("  the parent received %zu bytes and read in them:\n%s\n", bytes.size(),
                static_cast<char*>(failure.asString()));
    failure.asLog();

    say("worker 2 starts");
    pid_t const second = fork();
    if (second == 0) {
        secondWorker();
    }
    int status = 0;
    waitpid(second, &status, 0);
    std::printf("  worker 2 died of signal %d (%s)\n", WTERMSIG(status), strsignal(WTERMSIG(status)));
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? 0 : 1;
}
