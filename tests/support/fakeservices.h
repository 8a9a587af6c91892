#ifndef ZELQCOOD_TESTS_FAKESERVICES_H
#define ZELQCOOD_TESTS_FAKESERVICES_H

#include <functional>
#include <string>
#include <vector>

#include "zelqplatform/errorlog_service.h"

// The trace and error-log services as the test program defines them. An executable comes first in
// symbol look-up, so the library under test calls these.

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

/// What of the trace is kept from now on. Long runs do without the lines that everything writes.
enum class Keep { everything, reports, nothing };
void keepTrace(Keep keep);

/// What xlog_record does from now on; it may throw.
void setRecordService(std::function<int(xlog_record_interface*, int*)> service);

/// The text that xlog_get_backtrace gives from now on; null when it has none.
void setBacktrace(char const* text);

/// The numbers of frames that xlog_get_backtrace was asked to leave out, and an end to the record.
std::vector<int> takeBacktraceRequests();

/// The one address that xpce_ckptr says cannot be read, beside null.
void setUnreadable(void const* address);

/// Makes the calls of one function ("setup", "add", "remove") of the program-check exit service give
/// this result; all others succeed.
void scriptTrapService(char const* call, int src, int crc);

/// The calls of that service in their order, and an end to the record: "setup(2) add remove unset ".
std::string takeTrapCalls();

/// What the three fetches put into the buffer of the given size, and their result. They tell in
/// `which` whether they were called for the system ('s'), the process ('p') or the thread ('t').
void setFetchService(std::function<int(char which, char* buffer, unsigned size)> service);

#endif
