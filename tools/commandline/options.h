#ifndef ZELQ_TOOLS_COMMANDLINE_OPTIONS_H
#define ZELQ_TOOLS_COMMANDLINE_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/terminal/output.h"

namespace CLI {
class App;
}

// Options that several commands have, and values of options. What is no such value throws Failure with
// exitUsage and a message that names the fault, which the parser's own would not.

namespace zelq {

/// A command as main() sees it.
struct Command {
    CLI::App* parser;  ///< tells whether the command was given
    std::function<ExitStatus(Output&)> run;
};

/// How many of the newest lines or records following begins with, so that the screen shows where it starts.
constexpr std::size_t followedNewest = 10;

using TakeText = std::function<void(std::string const& text)>;

/// An option whose value `take` gets; it is not called for an empty one.
void addValue(CLI::App& command, char const* name, char const* what, char const* type, TakeText const& take);

/// The same for an option that may be given several times. Each takes one word of the command line.
void addRepeatable(CLI::App& command, char const* name, std::string const& what, char const* type,
                   TakeText const& take);

/// -o and --output, with the name of one of these formats.
void addFormat(CLI::App& command, char const* what, std::vector<std::string> const& formats, TakeText const& take);

/// -n and --lines: a number, 10 when it is left out, or "all".
void addNewest(CLI::App& command, char const* what, std::optional<std::size_t>& newest);

/// A number of so many bits at most. None when `text` is something else, or has more than digits.
std::optional<std::uint64_t> parseNumber(std::string_view text, int base, int bits = 64);

/// A moment, in microseconds since 1970, as people give it:
///
///   2026-11-22 10:00:00   a moment; seconds, time of day or date may be left out
///   today  yesterday  tomorrow  now
///   10 min ago  -10min  -1h30min  +5s     relative to now
///   @1764000000           seconds since 1970
///
/// In local time unless "UTC" or "Z" follows it, so that a time that was printed by shownTime() can be
/// given back.
long long parseTime(std::string const& text);

/// The moment that lies so many days before now.
long long parseDaysBeforeNow(std::string const& text);

/// Bytes, with K, M or G behind them if need be.
std::uint64_t parseBytes(std::string const& text);

}  // namespace zelq

#endif
