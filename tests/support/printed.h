#ifndef ZELQ_TEST_PRINTED_H
#define ZELQ_TEST_PRINTED_H

#include <sys/mman.h>
#include <unistd.h>
#include <cstdio>
#include <string>

/// Takes the place of a standard output within its life, and gives what was printed since the last time.
class Printed {
public:
    explicit Printed(int descriptor = STDOUT_FILENO)
        : descriptor_(descriptor), saved_(dup(descriptor)), file_(memfd_create("printed", MFD_CLOEXEC)) {
        dup2(file_, descriptor);
    }
    ~Printed() {
        dup2(saved_, descriptor_);
        close(saved_);
        close(file_);
    }
    Printed(Printed const&) = delete;
    Printed& operator=(Printed const&) = delete;

    std::string take() {
        std::fflush(descriptor_ == STDERR_FILENO ? stderr : stdout);
        std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_CUR)), '\0');
        bool const good = pread(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
                          ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0;
        return good ? text : "what was printed is lost";
    }

private:
    int descriptor_;
    int saved_;
    int file_;
};

#endif
