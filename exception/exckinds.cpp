// The kinds of exception: they differ from the base in their names and trace scopes.

#include "trace/destructorscope.h"
#include "zelqcood/exception.h"
#include "zelqcood/trace.h"

namespace {

const char _traceMask[] = "XLIBEXC";

}  // namespace

XException::XException(char* errorText, ZoException::Severity severity, int logged)
    : XBaseException(errorText, severity, logged) {
    XTrace scope(_traceMask, 'D', "XException");
    setName("XException");
}

XException::XException(ZoException const& other) : XBaseException(other) {
    XTrace scope(_traceMask, 'D', "XException");
}

XException::XException(XException const& other) : XBaseException(other) {
    XTrace scope(_traceMask, 'D', "XException");
}

XException::~XException() {
    DestructorScope scope(_traceMask, 'D', "~XException");
}

XTrapException::XTrapException(char* errorText, int logged) : XBaseException(errorText, unrecoverable, logged) {
    XTrace scope(_traceMask, 'D', "XTrapException");
    setName("XTrapException");
}

XTrapException::XTrapException(XTrapException const& other) : XBaseException(other) {
    XTrace scope(_traceMask, 'D', "XTrapException");
}

XTrapException::~XTrapException() {
    DestructorScope scope(_traceMask, 'D', "~XTrapException");
}
