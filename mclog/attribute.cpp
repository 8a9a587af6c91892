#include "zelqcood/mclog.h"

// Constant-initialised, like those of XLog.
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitThreadTrace(0x2000, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitProcessTrace(0x4000, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitSystemTrace(0x8000, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitAllTraces(0xE000, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::omitBacktrace(0x0040, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::rebootSystem(0x1000, 0);
__constinit const XMicrocodeLog::Attribute XMicrocodeLog::classDefaultAttributes(0x0300, 0);

XMicrocodeLog::Attribute::NegatedAttribute XMicrocodeLog::Attribute::operator~() const {
    return NegatedAttribute(~asUnsignedLong(), ~asExtendedUnsignedLong());
}

XMicrocodeLog::Attribute XMicrocodeLog::Attribute::operator|(Attribute const& other) const {
    return XLog::Attribute::operator|(other);
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
