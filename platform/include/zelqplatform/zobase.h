#ifndef ZELQPLATFORM_ZOBASE_H
#define ZELQPLATFORM_ZOBASE_H

#include "zelqplatform/api.h"

class ZoString;

/// Empty root of the foundation's value classes. It adds neither data nor virtual functions.
class ZELQ_API ZoBase {};

/// Root of the foundation's polymorphic classes.
///
/// Virtual slots: destructor, asString(), asDebugInfo(). Derived classes continue from there.
class ZELQ_API ZoVBase : public ZoBase {
public:
    virtual ~ZoVBase();

    /// The object in a form for people; here the demangled name of its dynamic class.
    virtual ZoString asString() const;

    /// The object in a form for debugging; here asString(), " at 0x" and the address.
    virtual ZoString asDebugInfo() const;

protected:
    ZoVBase() = default;
    ZoVBase(ZoVBase const&) = default;
    ZoVBase& operator=(ZoVBase const&) = default;
};

#endif
