#ifndef ZELQCOOD_TRAP_H
#define ZELQCOOD_TRAP_H

#include "zelqcood/exception.h"
#include "zelqplatform/pce_service.h"

/// Connects a process to the program-check exit service for as long as the handler lives: the service
/// calls the user exit when the process takes a program check (a bad memory access, a division by
/// zero, an illegal instruction).
///
/// Every failure of the service is traced and thrown as an XException with a microcode log that
/// describes it; nobody has recorded it then. Failures that a caller may simply have caused by doing a
/// thing twice are recoverable.
class ZELQ_API XTrapHandler {
public:
    /// What kind of process this is. The service is told the number, 16 bits of it; it may be one that the
    /// service knows and this list does not.
    enum ProcessType : unsigned int {
        applicationProcess = 1,
        serviceProcess = 2,
    };

    /// Sets the service up and, unless it is null, registers the exit, which runs as a signal handler:
    /// it may only call what is safe there. When the registration fails the set-up stays.
    XTrapHandler(ProcessType processType, void (*exit)(int, siginfo*, void*));

    /// Removes the exit and undoes the set-up. A failing removal is thrown, and then the set-up stays;
    /// while another exception is on its way it is left in the trace, and the set-up is undone.
    ~XTrapHandler() noexcept(false);  // NOLINT(bugprone-exception-escape)

    XTrapHandler(XTrapHandler const&) = delete;
    XTrapHandler& operator=(XTrapHandler const&) = delete;

    /// Registers one more exit; the service calls the exits in the order of their registration.
    static void addUserExit(void (*exit)(int, siginfo*, void*));

    static void removeUserExit(void (*exit)(int, siginfo*, void*));

private:
    void (*userExit_)(int, siginfo*, void*);
};

#endif
