#ifndef ZELQ_TOOLS_COMMANDLINE_TIMETEXT_H
#define ZELQ_TOOLS_COMMANDLINE_TIMETEXT_H

#include <string>
#include <string_view>

namespace zelq {

/// Reads a time as the store and the JSON output write it, "2026-11-22T10:00:00.123456Z", into
/// microseconds since 1970. False when it is no such time.
bool parseStoredTime(std::string_view text, long long* timeUs);

/// The opposite of parseStoredTime().
std::string storedTime(long long timeUs);

/// Writes microseconds since 1970 as a UTC time for people, "2026-11-22 10:00:00Z"; with six more
/// digits when `microseconds`.
std::string shownTime(long long timeUs, bool microseconds);

}  // namespace zelq

#endif
