#include "zelqcood/mclog.h"

#include <cstdlib>

#include "zelqplatform/errorlog_items.h"
#include "zelqplatform/errorlog_service.h"

namespace {

constexpr unsigned int snapshotLines = 250;

}  // namespace

// Constant-initialised, like those of XLog.
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitThreadTrace(XLOG_OMIT_THREAD_TRACE, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitProcessTrace(XLOG_OMIT_PROCESS_TRACE, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitSystemTrace(XLOG_OMIT_SYSTEM_TRACE, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitAllTraces(
    XLOG_OMIT_THREAD_TRACE | XLOG_OMIT_PROCESS_TRACE | XLOG_OMIT_SYSTEM_TRACE, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitBacktrace(XLOG_OMIT_BACKTRACE, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::rebootSystem(XLOG_REBOOT_SYSTEM, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::classDefaultAttributes(XLOG_ERROR | XLOG_STANDARD_BLOCK, 0);

XMicrocodeLog::Attribute::NegatedAttribute XMicrocodeLog::Attribute::operator~() const {
    return NegatedAttribute(~asUnsignedLong(), ~asExtendedUnsignedLong());
}

XMicrocodeLog::Attribute XMicrocodeLog::Attribute::operator|(Attribute const& other) const {
    return XLog::Attribute::operator|(other);
}

// Not inlined, like the other constructors that take a backtrace: see captureBacktrace().
[[gnu::noinline]] XMicrocodeLog::XMicrocodeLog()
    : XLog(0, 0, 0, nullptr, XLog::error | XLog::logStandardBlock, nullptr),
      microcode_{0, 0, nullptr, 0},
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    captureBacktrace("");
}

[[gnu::noinline]] XMicrocodeLog::XMicrocodeLog(unsigned char logClass, unsigned char logType, unsigned short user,
                                               unsigned short errorId, int errorReason, char const* eventName,
                                               char const* text, XLog::Attribute attributes, int owned,
                                               char const* logId)
    : XLog(logClass, logType, user, eventName, attributes | XLog::logStandardBlock, logId),
      microcode_{errorId, errorReason, text, owned},
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    captureBacktrace("");
}

XMicrocodeLog::XMicrocodeLog(XMicrocodeLog const& other)
    : XLog(other),
      microcode_(other.microcode_),
      backtrace_(other.backtrace_),
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>(*other.secondaryRefcodes_)) {}

XMicrocodeLog::~XMicrocodeLog() = default;

// The service leaves out three frames: this one, that of the constructor which calls it, and that
// of the class derived from this one. So these stay frames of their own, and the text begins where a program
// built its log.
[[gnu::noinline]] void XMicrocodeLog::captureBacktrace(char const* heading) {
    constexpr int ownFrames = 3;
    char* text = nullptr;
    int length = 0;
    xlog_get_backtrace(&text, subclassLevel() + ownFrames, &length);
    std::unique_ptr<char, void (*)(void*)> const owned(text, std::free);
    if (text != nullptr) {
        backtrace_ += heading;
        backtrace_ += text;
    }
}

XMicrocodeLog& XMicrocodeLog::setErrorId(unsigned short errorId) {
    microcode_.errorId = errorId;
    return *this;
}

unsigned short XMicrocodeLog::errorId() const {
    return microcode_.errorId;
}

XMicrocodeLog& XMicrocodeLog::setErrorReason(int errorReason) {
    microcode_.errorReason = errorReason;
    return *this;
}

int XMicrocodeLog::errorReason() const {
    return microcode_.errorReason;
}

XMicrocodeLog& XMicrocodeLog::setText(char const* text) {
    microcode_.text = text;
    return *this;
}

ZoString XMicrocodeLog::text() const {
    return microcode_.text;
}

XMicrocodeLog& XMicrocodeLog::setOwned(int owned) {
    microcode_.owned = owned;
    return *this;
}

int XMicrocodeLog::isOwned() const {
    return microcode_.owned;
}

int XMicrocodeLog::isThreadTrace() const {
    return hasFlag(omitThreadTrace) == 0 ? 1 : 0;
}

int XMicrocodeLog::isProcessTrace() const {
    return hasFlag(omitProcessTrace) == 0 ? 1 : 0;
}

int XMicrocodeLog::isSystemTrace() const {
    return hasFlag(omitSystemTrace) == 0 ? 1 : 0;
}

XMicrocodeLog& XMicrocodeLog::enableBacktrace(int enable) {
    setFlag(omitBacktrace, enable == 0 ? 1 : 0);
    return *this;
}

int XMicrocodeLog::isBacktrace() const {
    return hasFlag(omitBacktrace) == 0 ? 1 : 0;
}

XMicrocodeLog& XMicrocodeLog::enableRebootSystem(int enable) {
    setFlag(rebootSystem, enable);
    return *this;
}

int XMicrocodeLog::isRebootSystem() const {
    return hasFlag(rebootSystem);
}

ZoString XMicrocodeLog::backtrace() const {
    return backtrace_;
}

int XMicrocodeLog::subclassLevel() const {
    return 0;
}

XEndMicrocodeLog::XEndMicrocodeLog()
    : XMicrocodeLog(xlog_microcode_class, 0, 0, 0, 0, nullptr, nullptr, XLog::error | XLog::logStandardBlock, 1,
                    nullptr) {}

XEndMicrocodeLog::XEndMicrocodeLog(unsigned char logType, unsigned short user, unsigned short errorId, int errorReason,
                                   char const* eventName, char const* text, XMicrocodeLog::Attribute attributes,
                                   int owned, char const* logId)
    : XMicrocodeLog(xlog_microcode_class, logType, user, errorId, errorReason, eventName, text, attributes, owned,
                    logId) {
    XMicrocodeLog::addTraceBlocks(snapshotLines, snapshotLines, snapshotLines);
}

XEndMicrocodeLog::XEndMicrocodeLog(XEndMicrocodeLog const& other) = default;

XEndMicrocodeLog::~XEndMicrocodeLog() = default;

XEndMicrocodeLog* XEndMicrocodeLog::clone() {
    return new XEndMicrocodeLog(*this);
}

int XEndMicrocodeLog::subclassLevel() const {
    return 1;
}

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(unsigned char logClass, unsigned char logType,
                                                          unsigned short errorId, int errorReason)
    : logClass_(logClass), logType_(logType), errorId_(errorId), errorReason_(errorReason) {}

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(SecondaryRefcodeInfo const& other) = default;

XMicrocodeLog::SecondaryRefcodeInfo::~SecondaryRefcodeInfo() = default;

unsigned char XMicrocodeLog::SecondaryRefcodeInfo::logClass() const {
    return static_cast<unsigned char>(logClass_);
}

unsigned char XMicrocodeLog::SecondaryRefcodeInfo::logType() const {
    return static_cast<unsigned char>(logType_);
}

unsigned short XMicrocodeLog::SecondaryRefcodeInfo::errorId() const {
    return errorId_;
}

int XMicrocodeLog::SecondaryRefcodeInfo::errorReason() const {
    return errorReason_;
}
