#ifndef ZELQ_TOOLS_TERMINAL_TEXT_H
#define ZELQ_TOOLS_TERMINAL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "common/text.h"

namespace zelq {

/// What becomes of a tab in a text that is made harmless.
enum class Tabs { escaped, kept };

/// `text` with everything that a terminal could obey, or that could make text look like other text,
/// in the form \x1b or \u202e: control characters, line ends among them, bytes that are not UTF-8,
/// and the characters that turn the writing direction. What it returns stays the same when it is
/// given again.
std::string printable(std::string_view text, Tabs tabs = Tabs::escaped);

/// `shown`, of which a terminal shows each character, with spaces behind it up to `width` columns.
std::string padded(std::string shown, std::size_t width);

/// Two hexadecimal digits for each byte, without blanks.
std::string hexText(std::string_view bytes);

/// Up to `width` bytes in hexadecimal and as characters, which stand in the same column however few
/// bytes there are.
std::string hexRow(std::string_view row, std::size_t width);

/// Microseconds since 1970 as a UTC time for people, "2026-11-22 10:00:00Z".
std::string shownTime(long long timeUs);

/// The same with microseconds.
std::string shownExactTime(long long timeUs);

/// So many lines at the end of a trace are shown where it is one thing among others: three traces
/// then leave room for the rest on a screen.
constexpr std::size_t foldedLines = 10;

}  // namespace zelq

#endif
