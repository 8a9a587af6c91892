#ifndef ZELQ_STORE_SEVERITY_H
#define ZELQ_STORE_SEVERITY_H

#include <cstdint>
#include <iterator>
#include <string_view>

#include "zelqplatform/errorlog_service.h"

namespace zelq {

struct Severity {
    std::uint16_t bit;  ///< among the attributes
    char const* stored;
    char const* shown;  ///< in tables; on a command line both words are understood
    bool isAlarming;    ///< it is to catch the eye
};

// The stored words reach the disk: never change one. The most severe stands first; the last one is what
// a record has without a bit of the others.
constexpr Severity severities[] = {
    {XLOG_ERROR, "error", "error", true},
    {0, "informational", "info", false},
};

template <class Test>
constexpr Severity const* findSeverity(Test test) {
    for (Severity const& severity : severities) {
        if (test(severity)) {
            return &severity;
        }
    }
    return nullptr;
}

inline Severity const& severityOf(unsigned attributes) {
    auto const* const found = findSeverity([attributes](Severity const& s) { return (attributes & s.bit) != 0; });
    return found != nullptr ? *found : *std::rbegin(severities);
}

/// Of a stored word; what is no such word counts as the last one.
inline Severity const& severityStoredAs(std::string_view word) {
    auto const* const found = findSeverity([word](Severity const& s) { return word == s.stored; });
    return found != nullptr ? *found : *std::rbegin(severities);
}

/// The severity that somebody asks for; null when there is none of that name.
inline Severity const* severityNamed(std::string_view word) {
    return findSeverity([word](Severity const& s) { return word == s.stored || word == s.shown; });
}

}  // namespace zelq

#endif
