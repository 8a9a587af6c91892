#ifndef ZELQ_TOOLS_COMMANDLINE_ARGUMENTS_H
#define ZELQ_TOOLS_COMMANDLINE_ARGUMENTS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/log/filter.h"

// Values of options. They are read here and not by the parser of the command line, whose messages
// would not name the fault. All throw UsageError.

namespace zelq {

/// A mistake on the command line.
struct UsageError {
    std::string message;
};

/// A number of lines or records, or "all".
std::size_t parseNewest(std::string const& text);

/// A moment as parseGivenTime() takes it, in microseconds since 1970.
long long parseTime(std::string const& text);

/// The first digits of an id, in lower case.
std::string parseId(std::string text);

/// The moment that lies so many days before now.
long long parseDaysBeforeNow(std::string const& text);

/// Bytes, with K, M or G behind them if need be.
std::uint64_t parseBytes(std::string const& text);

/// A number of up to eight bits in hexadecimal digits, as lists show it.
std::uint64_t parseClass(std::string const& text);

/// The shown words of all severities.
std::string severityChoice(char const* between);

/// A severity's shown word; its stored one is understood as well.
std::string parseSeverity(std::string const& text);

TextPattern parsePattern(std::string const& text);

}  // namespace zelq

#endif
