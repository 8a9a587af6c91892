#ifndef ZELQPLATFORM_PCE_SERVICE_H
#define ZELQPLATFORM_PCE_SERVICE_H

#include <signal.h>
#include <cstdint>

#include "zelqplatform/api.h"

/// \file
/// The program-check exit service: functions of the program that run when it takes a program check
/// (SIGSEGV, SIGBUS, SIGFPE or SIGILL), and a way to look at memory without taking one.
///
/// What happens at a program check, on the alternate stack of the thread that took it:
///
///   1. The user exits run, in the order of their registration, once for a program check. Only one
///      thread runs them at a time. One that faults meanwhile waits for it, but no longer than
///      XPCE_WAIT_SECONDS; it runs no exits itself.
///   2. Then comes the action that the service replaced. A handler is called, with the same arguments
///      and the signal mask that it asked for; when it returns, so does the service, and the failing
///      instruction repeats. SIG_IGN counts as the default for what is a fault.
///   3. The default action ends the process by the signal that it has been sent, with the siginfo and
///      the registers of the program check, so exit status and core file are those of a program
///      without the service.
///
/// An exit that takes a program check itself ends there, and with it step 1: the exits after it do
/// not run. Steps 2 and 3 follow with the signal of the first program check, not with the exit's own.
///
/// The same instruction of a thread that fails again at the same address, because a handler returned
/// without mending anything, is no new program check: the exits do not run again.
///
/// A signal sent by kill() counts as a program check, unless it was ignored before the setup. One
/// that is sent to a thread running exits is dropped. A fault while its signal is blocked ends the
/// process at once; no handler of any kind can be called then.

typedef siginfo_t siginfo;

extern "C" {

/// Called at a program check with signal, siginfo and context, as a signal handler is.
///
/// It may only call what is safe in a signal handler. It either returns or ends the process; it must
/// not leave by an exception or longjmp(), nor call the functions below other than xpce_ckptr. The
/// four signals are not blocked while it runs.
typedef void (*xpce_user_exit)(int, siginfo*, void*);
}

/// Results of the functions below. The second integer (crc) tells more. A result with crc 0 is what
/// doing a thing twice gives; nothing changed. Callers take results above 7 for failures that the
/// service has logged itself. This one logs nothing, and so gives none. Never renumber them: they
/// stand in traces.
enum xpce_result {
    XPCE_OK = 0,                  ///< done; crc 0
    XPCE_ALREADY_REGISTERED = 1,  ///< the exit is in the table, where it was; crc 0
    XPCE_NOT_REGISTERED = 2,      ///< the exit is not in the table; crc 0
    XPCE_NOT_SET_UP = 3,          ///< no xpce_setup() is in force; crc EPERM
    XPCE_NO_EXIT = 4,             ///< the exit is null; crc EINVAL
    XPCE_TABLE_FULL = 5,          ///< XPCE_EXIT_MAX exits are registered; crc ENOSPC
    XPCE_NO_STACK = 6,            ///< the thread's alternate stack cannot be made; crc is the errno
    XPCE_NO_ACTION = 7,           ///< a signal's action cannot be changed; crc is the errno
};

enum {
    XPCE_EXIT_MAX = 16,     ///< exits registered at a time
    XPCE_AREA_SIZE = 140,   ///< bytes of an area: a `struct sigaction` of 32-bit programs
    XPCE_WAIT_SECONDS = 5,  ///< the longest wait for another thread's exits
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(struct sigaction) == XPCE_AREA_SIZE);
#endif

extern "C" {

// The four functions keep errno and may be called from several threads at once, not from a signal
// handler. `crc` may be null. A child keeps over fork() what its parent had set up.
//
// A stack overflow needs an alternate stack for its handler. xpce_setup() and xpce_add_user_exit()
// give one, with a guard page, to the thread that calls them; one that it has already is left alone.
// It goes with the thread, or with the last xpce_unset() when that thread makes it. Other threads
// need a sigaltstack() of their own for their overflows; other program checks of theirs are caught
// without.

/// Sets the service up: its handlers take the place of the actions of the four signals. Calls are
/// counted; only the first changes actions, and each needs an xpce_unset(). The process type is for
/// other builds of the service; this one does not look at it.
///
/// `areaA` and `areaB` (null, or XPCE_AREA_SIZE bytes) receive as much as fits of the actions of
/// SIGSEGV and SIGBUS from before the first setup. After a failure nothing is changed or written.
ZELQ_API int xpce_setup(unsigned short processType, void* areaA, void* areaB, int* crc);

/// Undoes one xpce_setup(). The last one forgets all exits and puts the replaced actions back,
/// except where the program has installed another since: that stays.
///
/// `area` (null, or XPCE_AREA_SIZE bytes) receives as much as fits of the action that SIGSEGV had
/// when the call began. After XPCE_NO_ACTION the service counts as unset all the same.
ZELQ_API int xpce_unset(void* area, int* crc);

/// Registers an exit behind those that are registered.
ZELQ_API int xpce_add_user_exit(xpce_user_exit exit, int* crc);

/// Takes an exit out of the table. It may still be running in another thread.
ZELQ_API int xpce_remove_user_exit(xpce_user_exit exit, int* crc);

/// Says whether `length` bytes at `address` can be read, without touching them. Returns 0 when they
/// can; otherwise an errno, which `*code` (may be null) receives too. Null can never be read. Keeps
/// errno; safe in a signal handler. The answer holds until another thread unmaps the memory.
ZELQ_API int xpce_ckptr(void const* address, unsigned long length, int* code);
}

#endif
