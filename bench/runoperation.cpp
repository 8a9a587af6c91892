// Runs one of the main operations a number of times, for a counter of instructions to watch:
// runoperation NAME TIMES. What is to be counted happens in countedRun().

#include <cstdio>
#include <cstdlib>

#include "benchfolder.h"
#include "operations.h"
#include "tracing/ringlayout.h"
#include "zelqplatform/trace_service.h"

namespace {

constexpr int runsBefore = 10;  // what is done at the first use only is not counted

}  // namespace

extern "C" __attribute__((noipa)) void countedRun(std::function<void()> const& run, int times) {
    for (int i = 0; i < times; ++i) {
        run();
    }
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s NAME TIMES\n", argv[0]);
        return 2;
    }
    BenchFolder const folder;
    for (std::uint64_t i = 0; i < zelq::ringSizeDefault / zelq::ringSlotSize; ++i) {
        xtr_trace("first lap: the slots were never written before");
    }
    for (Operation const& operation : mainOperations()) {
        if (operation.name == argv[1]) {
            for (int i = 0; i < runsBefore; ++i) {
                operation.run();
            }
            countedRun(operation.run, std::atoi(argv[2]));
            return 0;
        }
    }
    std::fprintf(stderr, "no operation '%s'\n", argv[1]);
    return 2;
}
