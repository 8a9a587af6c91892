#include "zelqcood/trap.h"

#include <exception>
#include <memory>

#include "trace/message.h"
#include "zelqplatform/errorlog_service.h"
#include "zelqplatform/trace_service.h"

namespace {

constexpr char _traceMask[] = "XPCE___";
constexpr char sourceFile[] = "xtraphdr.cpp";

// The platform's record of one signal action, as large as it is in 32-bit programs.
using SignalArea = unsigned char[140];

constexpr unsigned char trapLogType = 0x3D;
constexpr int lastUnloggedResult = 7;

constexpr XMicrocodeLog::Attribute repeatedCall(XLOG_OMIT_BACKTRACE, 0);  // informational

/// How one way of failing is reported. The numbers are looked up by those who service the platform.
struct Failure {
    char const* head;
    ZoException::Severity severity;
    unsigned long line;
    unsigned short user;
    unsigned short errorId;
    XMicrocodeLog::Attribute const* attributes;
    int owned;
};

enum FailureKind { setupFailed, addFailed, addRepeated, removeFailed, removeRepeated };

// clang-format off
const Failure failures[] = {
    {"Error in XTrapHandler::TrapHandler calling xpce_setup(src=",
     ZoException::unrecoverable, 81, 0xE007, 0x07E0, &XMicrocodeLog::classDefaultAttributes, 1},
    {"Error in XTrapHandler::addUserExit(src=",
     ZoException::unrecoverable, 139, 0xDE07, 0x07DE, &XMicrocodeLog::classDefaultAttributes, 1},
    {"Error in XTrapHandler::addUserExit(src=",
     ZoException::recoverable, 134, 0xDE07, 0x07DE, &repeatedCall, 0},
    {"Error in XTrapHandler::removeUserExit(src=",
     ZoException::unrecoverable, 167, 0xDF07, 0x07DF, &XMicrocodeLog::classDefaultAttributes, 1},
    {"Error in XTrapHandler::removeUserExit(src=",
     ZoException::recoverable, 162, 0xDF07, 0x07DF, &repeatedCall, 0},
};
// clang-format on

[[noreturn]] void reportFailure(FailureKind kind, int src, int crc) {
    Failure const& failure = failures[kind];
    ZoString text = message(failure.head, src, ", crc=", crc, " 0x", hexadecimal(static_cast<std::uint32_t>(crc)), ")");
    XException exception(static_cast<char*>(text), failure.severity, src > lastUnloggedResult ? 1 : 0);
    exception.addLocation(ZoExceptionLocation(sourceFile, nullptr, failure.line));
    {
        XEndMicrocodeLog log(trapLogType, failure.user, failure.errorId, crc, "PCERROR", nullptr, *failure.attributes,
                             1, nullptr);
        log.setOwned(failure.owned);
        exception.setLogInfo(&log);
    }
    exception.asTrace(_traceMask, 'F');
    throw XException(exception);
}

}  // namespace

XTrapHandler::XTrapHandler(ProcessType processType, void (*exit)(int, siginfo*, void*)) : userExit_(nullptr) {
    xtr_trace("XPCE___T: > XTrapHandler::XTrapHandler");
    SignalArea areaA;
    SignalArea areaB;
    int crc = 0;
    int const src = xpce_setup(static_cast<unsigned short>(processType), areaA, areaB, &crc);
    if (src != 0) {
        reportFailure(setupFailed, src, crc);
    }
    if (exit != nullptr) {
        addUserExit(exit);
        userExit_ = exit;
    }
    xtr_trace("XPCE___T: < XTrapHandler::XTrapHandler");
}

// NOLINTNEXTLINE(bugprone-exception-escape): what its failure has to be
XTrapHandler::~XTrapHandler() noexcept(false) {
    xtr_trace("XPCE___T: > XTrapHandler::~XTrapHandler");
    if (userExit_ != nullptr) {
        // A second exception would end the program. The failure stands in the trace by then.
        bool const mayThrow = std::uncaught_exceptions() == 0;
        try {
            removeUserExit(userExit_);
        } catch (std::bad_alloc const&) {
            if (mayThrow) {
                throw;
            }
        } catch (XException const&) {
            if (mayThrow) {
                throw;
            }
        }
    }
    SignalArea area;
    int crc = 0;
    xpce_unset(area, &crc);
    xtr_trace("XPCE___T: < XTrapHandler::~XTrapHandler");
}

void XTrapHandler::addUserExit(void (*exit)(int, siginfo*, void*)) {
    xtr_trace("XPCE___T: <> addUserExit");
    int crc = 0;
    int const src = xpce_add_user_exit(exit, &crc);
    if (src != 0) {
        reportFailure(crc != 0 ? addFailed : addRepeated, src, crc);
    }
}

void XTrapHandler::removeUserExit(void (*exit)(int, siginfo*, void*)) {
    xtr_trace("XPCE___T: <> removeUserExit");
    int crc = 0;
    int const src = xpce_remove_user_exit(exit, &crc);
    if (src != 0) {
        reportFailure(crc != 0 ? removeFailed : removeRepeated, src, crc);
    }
}
