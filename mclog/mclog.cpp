#include "zelqcood/mclog.h"

#include <cstdlib>

#include "zelqplatform/errorlog_service.h"

XMicrocodeLog::XMicrocodeLog()
    : XLog(0, 0, 0, nullptr, XLog::error | XLog::logStandardBlock, nullptr),
      errorId_(0),
      errorReason_(0),
      owned_(0),
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    backtrace_ = captureBacktrace();
}

XMicrocodeLog::XMicrocodeLog(unsigned char logClass, unsigned char logType, unsigned short user, unsigned short errorId,
                             int errorReason, char const* eventName, char const* text, XLog::Attribute attributes,
                             int owned, char const* logId)
    : XLog(logClass, logType, user, eventName, attributes | XLog::logStandardBlock, logId),
      errorId_(errorId),
      errorReason_(errorReason),
      text_(text),
      owned_(owned),
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    backtrace_ = captureBacktrace();
}

XMicrocodeLog::XMicrocodeLog(XMicrocodeLog const& other)
    : XLog(other),
      errorId_(other.errorId_),
      errorReason_(other.errorReason_),
      text_(other.text_),
      owned_(other.owned_),
      backtrace_(other.backtrace_),
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>(*other.secondaryRefcodes_)) {}

XMicrocodeLog::~XMicrocodeLog() = default;

// The service leaves out three frames: this one, that of the constructor which calls it, and that
// of the class derived from this one. So it stays a frame of its own, called by each constructor
// itself, and the text begins where a program built its log.
__attribute__((noinline)) ZoString XMicrocodeLog::captureBacktrace() const {
    constexpr int ownFrames = 3;
    char* text = nullptr;
    int length = 0;
    xlog_get_backtrace(&text, subclassLevel() + ownFrames, &length);
    std::unique_ptr<char, void (*)(void*)> const owned(text, std::free);
    return ZoString(text);
}

XMicrocodeLog& XMicrocodeLog::setErrorId(unsigned short errorId) {
    errorId_ = errorId;
    return *this;
}

unsigned short XMicrocodeLog::errorId() const {
    return errorId_;
}

XMicrocodeLog& XMicrocodeLog::setErrorReason(int errorReason) {
    errorReason_ = errorReason;
    return *this;
}

int XMicrocodeLog::errorReason() const {
    return errorReason_;
}

XMicrocodeLog& XMicrocodeLog::setText(char const* text) {
    text_ = text;
    return *this;
}

ZoString XMicrocodeLog::text() const {
    return text_;
}

XMicrocodeLog& XMicrocodeLog::setOwned(int owned) {
    owned_ = owned;
    return *this;
}

int XMicrocodeLog::isOwned() const {
    return owned_;
}

ZoString XMicrocodeLog::backtrace() const {
    return backtrace_;
}

int XMicrocodeLog::subclassLevel() const {
    return 0;
}
