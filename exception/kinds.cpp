// The kinds of exception: they differ from the base in their names and trace scopes.

#include "trace/destructorscope.h"
#include "zelqcood/exception.h"

namespace {

constexpr char _traceMask[] = "XLIBEXC";
constexpr EntryLine buildExceptionLine(_traceMask, 'D', "XException");
constexpr EntryLine destroyExceptionLine(_traceMask, 'D', "~XException");
constexpr EntryLine buildTrapExceptionLine(_traceMask, 'D', "XTrapException");
constexpr EntryLine destroyTrapExceptionLine(_traceMask, 'D', "~XTrapException");

}  // namespace

XException::XException(char* errorText, ZoException::Severity severity, int logged)
    : XBaseException(errorText, severity, logged) {
    TraceScope const scope(buildExceptionLine);
    setName("XException");
}

XException::XException(ZoException const& other) : XBaseException(other) {
    TraceScope const scope(buildExceptionLine);
}

XException::XException(XException const& other) : XBaseException(other) {
    TraceScope const scope(buildExceptionLine);
}

XException::~XException() {
    DestructorScope const scope(destroyExceptionLine);
}

XTrapException::XTrapException(char* errorText, int logged) : XBaseException(errorText, unrecoverable, logged) {
    TraceScope const scope(buildTrapExceptionLine);
    setName("XTrapException");
}

XTrapException::XTrapException(XTrapException const& other) : XBaseException(other) {
    TraceScope const scope(buildTrapExceptionLine);
}

XTrapException::~XTrapException() {
    DestructorScope const scope(destroyTrapExceptionLine);
}
