#include "zelqcood/log.h"

// Constant-initialised: whatever runs first in a program, whichever library is loaded first, sees
// them set.
__constinit const XLog::Attribute XLog::informational(0x000, 0);
__constinit const XLog::Attribute XLog::error(0x100, 0);
__constinit const XLog::Attribute XLog::logStandardBlock(0x200, 0);
__constinit const XLog::Attribute XLog::logModifyBlock(0x400, 0);
__constinit const XLog::Attribute XLog::componentLogOnly(0x001, 0);
__constinit const XLog::Attribute XLog::componentLogBoth(0x002, 0);
__constinit XLog::Attribute XLog::classDefaultAttributes(XLog::informational);

XLog::Attribute::NegatedAttribute XLog::Attribute::operator~() const {
    return NegatedAttribute(~asUnsignedLong(), ~asExtendedUnsignedLong());
}

unsigned long XLog::Attribute::operator&(Attribute const& other) const {
    return (asUnsignedLong() & other.asUnsignedLong()) | (asExtendedUnsignedLong() & other.asExtendedUnsignedLong());
}

XLog::Attribute XLog::Attribute::operator|(Attribute const& other) const {
    return Attribute(asUnsignedLong() | other.asUnsignedLong(),
                     asExtendedUnsignedLong() | other.asExtendedUnsignedLong());
}

XLog::Attribute& XLog::Attribute::operator|=(Attribute const& other) {
    setValue(asUnsignedLong() | other.asUnsignedLong(), asExtendedUnsignedLong() | other.asExtendedUnsignedLong());
    return *this;
}

XLog::Attribute XLog::Attribute::operator&(NegatedAttribute const& mask) const {
    return Attribute(asUnsignedLong() & mask.asUnsignedLong(),
                     asExtendedUnsignedLong() & mask.asExtendedUnsignedLong());
}

XLog::Attribute& XLog::Attribute::operator&=(NegatedAttribute const& mask) {
    setValue(asUnsignedLong() & mask.asUnsignedLong(), asExtendedUnsignedLong() & mask.asExtendedUnsignedLong());
    return *this;
}

XLog& XLog::setFlag(Attribute const& flag, int enable) {
    if (enable != 0) {
        attributes_ |= flag;
    } else {
        attributes_ &= ~flag;
    }
    return *this;
}

int XLog::hasFlag(Attribute const& flag) const {
    return (attributes_ & flag) != 0 ? 1 : 0;
}

XLog& XLog::setSeverity(int isError) {
    return setFlag(error, isError);
}

int XLog::isError() const {
    return hasFlag(error);
}

XLog& XLog::enableStandardBlock(int enable) {
    return setFlag(logStandardBlock, enable);
}

int XLog::isStandardBlock() const {
    return hasFlag(logStandardBlock);
}

XLog& XLog::enableModifyBlock(int enable) {
    return setFlag(logModifyBlock, enable);
}

int XLog::isModifyBlock() const {
    return hasFlag(logModifyBlock);
}

XLog& XLog::enableComponentLogOnly(int enable) {
    return setFlag(componentLogOnly, enable);
}

int XLog::isComponentLogOnly() const {
    return hasFlag(componentLogOnly);
}

XLog& XLog::enableComponentLogBoth(int enable) {
    return setFlag(componentLogBoth, enable);
}

int XLog::isComponentLogBoth() const {
    return hasFlag(componentLogBoth);
}
