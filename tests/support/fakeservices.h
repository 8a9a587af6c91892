#ifndef ZELQCOOD_TESTS_FAKESERVICES_H
#define ZELQCOOD_TESTS_FAKESERVICES_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "zelqplatform/errorlog_service.h"

// The trace and error-log services as the test program defines them. An executable comes first in
// symbol look-up, so the library under test calls these.

/// What the services do, for a test to change, and what they noted.
struct FakeServices {
    /// What of the trace is kept from now on. Long runs do without the lines that everything writes.
    enum Keep { everything, reports, nothing } keep = everything;

    std::function<int(xlog_record_interface*, int*)> record;  ///< xlog_record; it may throw

    char const* backtrace = nullptr;     ///< the text that xlog_get_backtrace gives; null when it has none
    std::vector<int> backtraceRequests;  ///< the numbers of frames that it was asked to leave out

    void const* unreadable = nullptr;  ///< the one address that xpce_ckptr says cannot be read, beside null

    /// The results of one function of the program-check exit service; all others succeed.
    struct {
        std::string call;  ///< "setup", "add", "remove"
        int src = 0;
        int crc = 0;
    } trapFailure;
    std::string trapCalls;  ///< the calls of that service in their order: "setup(2) add remove unset "

    /// What the three fetches put into the buffer of the given size, and their result. They tell in
    /// `which` whether they were called for the system ('s'), the process ('p') or the thread ('t').
    std::function<int(char which, char* buffer, unsigned size)> fetch;
};
inline FakeServices fake;

/// One call of the trace service.
struct TraceCall {
    enum Function { trace, traceCb, dumpBytesCb } function;
    unsigned int handle;
    std::string line;
    void const* data = nullptr;
    unsigned long length = 0;
    char last = 0;  // of the buffer that the line or label stands in; a line for xtr_trace has none of its own
};

/// Everything traced since the last clearTrace(), lines and dumps alike.
std::vector<TraceCall> const& traceCalls();
void clearTrace();

/// The lines as one text with a newline behind each, handles in front and dumped bytes behind. Addresses,
/// which differ from run to run, are replaced by "@" (those that are 0 stay).
std::string tracedText();

/// The lines at levels other than 'D' that belong to no scope: what readers report.
std::vector<std::string> reportedLines();

#endif
