#ifndef ZELQCOOD_TESTS_GUARDEDBLOCK_H
#define ZELQCOOD_TESTS_GUARDEDBLOCK_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "support/hex.h"

/// A copy of the bytes whose end is the end of readable memory: one byte too far is a crash.
class GuardedBlock {
public:
    explicit GuardedBlock(Bytes const& bytes) {
        auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        std::size_t const readable = (bytes.size() + page - 1) / page * page;
        length_ = readable + page;
        memory_ = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory_ == MAP_FAILED) {
            throw std::runtime_error("no memory for a guarded block");
        }
        auto* const start = static_cast<unsigned char*>(memory_);
        mprotect(start + readable, page, PROT_NONE);
        block_ = start + readable - bytes.size();
        std::copy(bytes.begin(), bytes.end(), block_);
    }
    ~GuardedBlock() { munmap(memory_, length_); }
    GuardedBlock(GuardedBlock const&) = delete;
    GuardedBlock& operator=(GuardedBlock const&) = delete;

    unsigned char* get() const { return block_; }

private:
    void* memory_;
    std::size_t length_;
    unsigned char* block_;
};

#endif
