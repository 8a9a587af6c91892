#ifndef ZELQ_TOOLS_COMMANDLINE_GIVENTIME_H
#define ZELQ_TOOLS_COMMANDLINE_GIVENTIME_H

#include <optional>
#include <string_view>

namespace zelq {

/// Reads a time as people give it on a command line, into microseconds since 1970:
///
///   2026-11-22 10:00:00   a moment; seconds, time of day or date may be left out
///   today  yesterday  tomorrow  now
///   10 min ago  -10min  -1h30min  +5s     relative to `nowUs`
///   @1764000000           seconds since 1970
///
/// A moment is in local time unless "UTC" or "Z" follows it, so that a time that was printed by
/// shownTime() can be given back. None when it is no such time.
std::optional<long long> parseGivenTime(std::string_view given, long long nowUs);

}  // namespace zelq

#endif
