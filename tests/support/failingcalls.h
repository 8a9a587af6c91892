#ifndef ZELQCOOD_TESTS_FAILINGCALLS_H
#define ZELQCOOD_TESTS_FAILINGCALLS_H

#include <ctime>
#include <functional>
#include <string>

// Replaces the C library's calls for files and time in the whole program, libraries included, so
// that a test can watch them and make them fail. The program must export its symbols.

/// Given the name of a call, tells what becomes of it: 0 lets it do its work, a positive number is
/// the errno that it fails with, halfOfIt lets a write() do half of it, and dies ends the process.
using CallHook = std::function<int(std::string const& name)>;
constexpr int halfOfIt = -1;
constexpr int dies = -2;

/// Within its life, every such call of this thread is put to the hook; what the hook itself does is
/// not. Nothing sleeps meanwhile: nanosleep() returns at once and puts the monotonic clock on.
class CallsHooked {
public:
    explicit CallsHooked(CallHook hook);
    ~CallsHooked();
    CallsHooked(CallsHooked const&) = delete;
    CallsHooked& operator=(CallsHooked const&) = delete;
};

/// Closes the descriptors 0 to 2 for good. Within its life, this thread tries to print at each call.
class StandardDescriptorsClosed {
public:
    StandardDescriptorsClosed();

private:
    CallsHooked const hooked_;
};

/// What may go wrong at a call.
struct Fault {
    char const* what;
    int answer;
    bool lasts;        ///< all later calls of the same name fail too
    char const* only;  ///< the calls that may fail in this way, each between blanks; "" for all
};

/// A hook: the fault at the n-th call that it may hit.
class FaultAtCall {
public:
    FaultAtCall(Fault const& fault, unsigned n) : fault_(fault), left_(n) {}

    int operator()(std::string const& name);

    /// The call that failed; "" when there were fewer than n.
    std::string const& failed() const { return failed_; }

private:
    Fault const& fault_;
    unsigned left_;
    std::string failed_;
};

/// Sets the wall clock, in seconds since 1970, as this thread sees it as long as its calls are hooked.
void setWallClock(time_t now);

/// Sets the file system, by its number in <linux/magic.h>, on which all files lie as this thread sees it as long
/// as its calls are hooked.
void setFileSystem(unsigned type);

/// The descriptor that the call now put to the hook was given, or -1.
int hookedDescriptor();

#endif
