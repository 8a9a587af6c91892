#ifndef ZELQCOOD_BENCH_OPERATIONS_H
#define ZELQCOOD_BENCH_OPERATIONS_H

#include <functional>
#include <string>
#include <vector>

/// One of the library's main operations, and beside it what its definition cannot do without.
struct Operation {
    std::string name;
    std::function<void()> run;
    std::function<void()> runDemanded;
};

/// All of them. They write to the real trace ring; recording ends at a service that does nothing.
std::vector<Operation> mainOperations();

#endif
