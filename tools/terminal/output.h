#ifndef ZELQ_TOOLS_TERMINAL_OUTPUT_H
#define ZELQ_TOOLS_TERMINAL_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/text.h"
#include "tools/terminal/pager.h"

namespace zelq {

/// Exit statuses of the viewer. Scripts depend on them.
enum ExitStatus {
    exitFine = 0,
    exitNothing = 1,  ///< nothing matched, or nothing is there yet
    exitUsage = 2,
    exitDamaged = 3,  ///< some input could not be read; the rest was shown
    exitFailed = 4,   ///< the folder is refused, standard output cannot be written, no memory
};

/// When output is coloured.
enum class ColourMode { automatic, always, never };

/// What a piece of output is; how that looks is decided in one place.
enum class Style { plain, heading, alarm, faint };

/// Standard output. Collects what is printed; a failed write is remembered, and later ones are
/// left out, so that callers look once at the end.
class Output {
public:
    /// Automatic means: colour on a terminal, unless NO_COLOR is set or the terminal is a dumb one.
    Output(ColourMode mode, bool mayPage);

    /// Sends everything through a pager, if that is allowed and standard output is a terminal.
    void startPager() { wantsPager_ = mayPage_; }

    void print(std::string_view text);

    /// Prints `text` in a style when there is colour.
    void print(Style style, std::string_view text);

    /// Hands everything to the kernel. False when some of it was lost.
    bool flush();

    /// Flushes, and waits until the user has left the pager: what is told then does not get in its
    /// way. False when something was lost. A user who has left early has lost nothing.
    bool finish();

    /// Sleeps for a moment. False, at once, when whoever reads the output has gone.
    bool waitWithReader() const;

    /// Nobody reads any more, or it cannot be written: what is printed now is lost.
    bool isDone() const { return failure_ != 0; }

    /// errno of the first failed write, 0 when there was none.
    int failure() const { return failure_; }

private:
    bool coloured_;
    bool mayPage_;
    bool wantsPager_ = false;  // from the first output on
    int failure_ = 0;
    std::string pending_;
    Pager pager_;
};

/// Writes "zelq: <message>" to standard error, control characters escaped.
void complain(std::string_view message);

/// `text` with everything that a terminal could obey, or that could make text look like other text,
/// in the form \x1b or \u202e: control characters, bytes that are not UTF-8, and the characters that
/// turn the writing direction. Tabs stay when `keepTabs`.
std::string printable(std::string_view text, bool keepTabs = false);

/// Number of characters of a UTF-8 text, taken as its width on a terminal.
std::size_t columns(std::string_view text);

/// `text` followed by spaces up to `width` columns; unchanged when it is wider.
std::string padded(std::string text, std::size_t width);

/// Appends up to `width` bytes in hexadecimal and as characters, which stand in the same column however
/// few bytes there are.
void appendHexRow(std::string_view row, std::size_t width, std::string& to);

/// Appends a dump of 16 bytes per line, each line after `indent` spaces: offset, hexadecimal, characters.
void appendHexDump(std::string_view bytes, std::size_t indent, std::string& to);

}  // namespace zelq

#endif
