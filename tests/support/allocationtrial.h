#ifndef ZELQCOOD_TESTS_ALLOCATIONTRIAL_H
#define ZELQCOOD_TESTS_ALLOCATIONTRIAL_H

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/hex.h"

// Exhausted memory: an operation is repeated with its first, second, third ... allocation failing, until
// one run needs no more. Each time std::bad_alloc leaves it, nothing leaks, no scope stays open and
// nothing is half-changed.

/// Names of the functions that were put to the test, as the library exports them.
std::set<std::string>& triedFunctions();
using Names = std::vector<char const*>;

/// Whether an operation destroys logs of its own on its way: a destructor keeps a failure to itself.
enum class Destroys { nothing, logs };

inline std::string nothingToLookAt() {
    return "";
}

/// Runs the operation, which calls these functions, with each of its allocations failing once. `unchanged`
/// describes what the operation works on and must answer the same after every failure.
void failEach(Names const& names, std::function<void()> const& operation,
              std::function<std::string()> const& unchanged = nothingToLookAt, Destroys destroys = Destroys::nothing);

/// The same for several functions that work on one thing.
inline auto failEachOn(std::function<std::string()> const& unchanged) {
    return [=](char const* name, std::function<void()> const& operation) { failEach({name}, operation, unchanged); };
}

/// The same for the making of an object, which is kept meanwhile: its destruction would hide a failure.
template <class Object, class... Arguments>
void failEachMaking(Names const& names, Arguments const&... arguments) {
    std::unique_ptr<Object> made;
    failEach(names, [&] { made = std::make_unique<Object>(arguments...); });
}

/// Runs an operation that works without memory; tests/expected/needs_no_memory.txt has the names of what it calls.
void expectNoAllocation(std::function<void()> const& operation);

void expectBalancedScopes();

/// What is compared to see that nothing has changed.
template <class Object>
std::string hexOf(Object const& object) {
    return toHex(Block(object.asBinary()));
}

inline char someBytes[] = "0123456789";
inline char const longText[] =
    "a text that does not fit into the place that a string has inside, since it is much longer than one hundred and "
    "twenty-seven characters";

#endif
