// What it costs to ask whether memory can be read, beside the system calls that can tell: setting
// the signal mask in a way that does not exist (the kernel reads the mask first), and copying through
// the kernel. A plain read is what a caller without doubts pays. Link with benchmark_main.

#include <benchmark/benchmark.h>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <cstdint>

#include "zelqplatform/pce_service.h"

namespace {

constexpr std::size_t headerSize = 8;
constexpr std::size_t pages = 16;

char* memory(int protection) {
    auto const size = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const start = static_cast<char*>(
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0));
    mprotect(start, size, protection);
    return start;
}

char* const readable = memory(PROT_READ);
char* const unreadable = memory(PROT_NONE);

void pointerCheck(benchmark::State& state, char const* address, std::size_t length) {
    int code = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(xpce_ckptr(address, length, &code));
    }
}

void invalidMaskCall(benchmark::State& state, char const* address) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(syscall(SYS_rt_sigprocmask, -1, address, nullptr, headerSize));
    }
}

void readThroughKernel(benchmark::State& state, char* address) {
    char bytes[headerSize];
    iovec const local = {bytes, sizeof bytes};
    iovec const remote = {address, sizeof bytes};
    pid_t const self = getpid();
    for (auto _ : state) {
        benchmark::DoNotOptimize(process_vm_readv(self, &local, 1, &remote, 1, 0));
    }
}

void plainRead(benchmark::State& state) {
    for (auto _ : state) {
        std::uint64_t word = *static_cast<std::uint64_t const volatile*>(static_cast<void const*>(readable));
        benchmark::DoNotOptimize(word);
    }
}

BENCHMARK_CAPTURE(pointerCheck, readable8, readable, headerSize);
BENCHMARK_CAPTURE(pointerCheck, unreadable8, unreadable, headerSize);
BENCHMARK_CAPTURE(pointerCheck, null8, static_cast<char const*>(nullptr), headerSize);
BENCHMARK_CAPTURE(pointerCheck, readable64K, readable, std::size_t{64} << 10);
BENCHMARK_CAPTURE(invalidMaskCall, readable, readable);
BENCHMARK_CAPTURE(invalidMaskCall, unreadable, unreadable);
BENCHMARK_CAPTURE(readThroughKernel, readable, readable);
BENCHMARK_CAPTURE(readThroughKernel, unreadable, unreadable);
BENCHMARK(plainRead);

}  // namespace
