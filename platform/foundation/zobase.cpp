#include "zelqplatform/zobase.h"

#include <cxxabi.h>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "zelqplatform/zostring.h"

ZoVBase::~ZoVBase() = default;

ZoString ZoVBase::asString() const {
    char const* const mangled = typeid(*this).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const demangled(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                           std::free);
    return ZoString(demangled ? demangled.get() : mangled);
}

ZoString ZoVBase::asDebugInfo() const {
    ZoString address(static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(this)));
    return asString() + " at 0x" + address.d2x();
}
