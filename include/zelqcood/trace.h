#ifndef ZELQCOOD_TRACE_H
#define ZELQCOOD_TRACE_H

#include "zelqplatform/zobase.h"

/// A trace scope: one line when it is built, one when it is destroyed, whichever way the traced
/// operation ends. Build it on the stack as an operation's first statement.
///
/// Every line starts with the component name (the first 7 characters of the trace mask, padded
/// with blanks), a level character and ":". Lines have at most 199 characters; longer input keeps
/// its beginning. Mask, name and text must not be null. A failing trace service goes unnoticed.
///
/// Scopes allocate and are not for signal handlers. write() and dumpBytes() allocate nothing and
/// are as safe there as the trace service is.
class ZELQ_API XTrace : public ZoVBase {
public:
    /// Opens a scope on the default trace and writes "> " and the name (at most 187 characters).
    /// Throws std::bad_alloc, before anything is written, when there is no memory for the line.
    XTrace(char const* traceMask, char level, char const* name);

    /// The same on the trace that `handle` selects; 0 is the default trace.
    XTrace(unsigned int handle, char const* traceMask, char level, char const* name);

    /// Writes "< " and the name.
    virtual ~XTrace();

    XTrace(XTrace const&) = delete;
    XTrace& operator=(XTrace const&) = delete;

    /// Writes one line of at most 189 characters of text.
    static void write(unsigned int handle, char const* traceMask, char level, char const* text);
    static void write(char const* traceMask, char level, char const* text);

    /// Writes `length` bytes at `data` under a title of at most 30 characters, which may be null.
    static void dumpBytes(unsigned int handle, char const* traceMask, char level, char const* title, void const* data,
                          unsigned long length);
    static void dumpBytes(char const* traceMask, char level, char const* title, void const* data, unsigned long length);

private:
    unsigned int handle_;
    char* line_;
};

#endif
