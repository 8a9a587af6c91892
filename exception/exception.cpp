#include "zelqcood/exception.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "trace/message.h"

namespace {

constexpr char _traceMask[] = "XLIBEXC";
constexpr EntryLine buildLine(_traceMask, 'T', "XBaseException");
constexpr EntryLine copyLine(_traceMask, 'D', "XBaseException");
constexpr EntryLine destroyLine(_traceMask, 'D', "~XBaseException");
constexpr EntryLine buildExceptionLine(_traceMask, 'D', "XException");
constexpr EntryLine destroyExceptionLine(_traceMask, 'D', "~XException");
constexpr EntryLine buildTrapExceptionLine(_traceMask, 'D', "XTrapException");
constexpr EntryLine destroyTrapExceptionLine(_traceMask, 'D', "~XTrapException");

// What data() gives for an item that does not exist.
XMicrocodeLogData nullData(nullptr, 0, XMicrocodeLogData::binaryFormat);

}  // namespace

void XBaseException::Free::operator()(char* text) const {
    std::free(text);
}

char* XBaseException::duplicate(char const* text) {
    if (text == nullptr) {
        return nullptr;
    }
    auto* const copy = static_cast<char*>(std::malloc(std::strlen(text) + 1));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return std::strcpy(copy, text);
}

XBaseException::XBaseException(char* errorText, ZoException::Severity severity, int logged)
    : ZoException(errorText, 0, severity), name_("XBaseException"), logged_(logged) {
    TraceScope const scope(buildLine);
    traceLine(_traceMask, 'F', "errorText=", errorText == nullptr ? "NULL" : errorText);
    traceLine(_traceMask, 'F', "severity=", severity == recoverable ? "recoverable" : "nonrecoverable",
              ", logged=", logged != 0 ? "true" : "false");
}

XBaseException::XBaseException(ZoException const& other) : ZoException(other), name_(other.name()), logged_(0) {
    TraceScope const scope(copyLine);
}

XBaseException::XBaseException(XBaseException const& other)
    : ZoException(other),
      name_(other.name_),
      logged_(other.logged_),
      logInfo_(other.logInfo_ ? other.logInfo_->clone() : nullptr) {
    TraceScope const scope(copyLine);
    // A platform exception may have been assigned over the locations that had these names: what they tell
    // now is what is copied.
    std::size_t const owned = std::min<std::size_t>(other.locationNames_.size(), locationCount());
    locationNames_.reserve(owned);
    for (unsigned long i = 0; i < owned; ++i) {
        ZoExceptionLocation& location = *locationAtIndex(i);
        LocationNames copies;
        copies.file.reset(duplicate(location.fileName()));
        copies.function.reset(duplicate(location.functionName()));
        location = ZoExceptionLocation(copies.file.get(), copies.function.get(), location.lineNumber());
        locationNames_.push_back(std::move(copies));
    }
}

XBaseException::~XBaseException() {
    DestructorScope const scope(destroyLine);
    traceLine(_traceMask, 'D', "this=0x", hexadecimal(addressOf(this), 8));
    logInfo_.reset();
    locationNames_.clear();
}

// The names come first: without memory for the location nothing points to them.
void XBaseException::ownLocationNames(LocationNames names, unsigned long lineNumber) {
    locationNames_.push_back(std::move(names));
    LocationNames const& owned = locationNames_.back();
    addLocation(ZoExceptionLocation(owned.file.get(), owned.function.get(), lineNumber));
}

char const* XBaseException::name() const {
    return name_;
}

void XBaseException::setName(char const* name) {
    name_ = name;
}

int XBaseException::isLogged() const {
    return logged_;
}

XBaseException& XBaseException::setLogged(int logged) {
    logged_ = logged;
    return *this;
}

XMicrocodeLog* XBaseException::logInfo() const {
    return logInfo_.get();
}

XBaseException& XBaseException::setLogInfo(XMicrocodeLog* log) {
    logInfo_.reset(log->clone());
    return *this;
}

XBaseException& XBaseException::addData(XMicrocodeLogData const& item) {
    if (logInfo_) {
        logInfo_->addData(item);
    }
    return *this;
}

XLogData* XBaseException::data(unsigned int index) const {
    if (!logInfo_) {
        return &nullData;
    }
    std::list<XLogData*> const& items = *logInfo_->data();
    if (items.empty() || index > items.size()) {
        return &nullData;
    }
    auto item = items.begin();
    for (; index > 1; --index) {
        ++item;
    }
    return *item;
}

unsigned int XBaseException::dataCount() const {
    return logInfo_ ? static_cast<unsigned int>(logInfo_->data()->size()) : 0;
}

// The kinds differ from the base in their names and trace scopes.

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
