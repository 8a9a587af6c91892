#ifndef ZELQ_TOOLS_TERMINAL_OUTPUT_H
#define ZELQ_TOOLS_TERMINAL_OUTPUT_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "tools/terminal/text.h"

namespace zelq {

/// Exit statuses of the viewer. Scripts depend on them.
enum ExitStatus {
    exitFine = 0,
    exitNothing = 1,  ///< nothing matched, or nothing is there yet
    exitUsage = 2,
    exitDamaged = 3,  ///< some input could not be read; the rest was shown
    exitFailed = 4,   ///< the folder is refused, standard output cannot be written, no memory
};

/// Thrown where a command cannot go on, and caught by main() alone.
struct Failure {
    ExitStatus status;
    std::string message;  ///< for complain(); empty when there is nothing to tell
};

/// When output is coloured. Automatic: on a terminal, unless NO_COLOR is set or the terminal is a dumb one.
enum class ColourMode { automatic, always, never };

/// Whether long output may go through a pager. Automatic: on a terminal.
enum class Paging { automatic, never };

/// What a piece of output is; how that looks is decided in one place.
enum class Style { plain, heading, alarm, faint };

/// Standard output. Whatever is in a text that is printed, it does nothing to a terminal and ends no
/// line: only what the viewer itself has made goes out by raw(). Collects what is printed; a failed
/// write is remembered, and later ones are left out, so that callers look once at the end.
class Output {
public:
    Output(ColourMode mode, Paging paging);
    ~Output();
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;

    /// Sends everything through $ZELQ_PAGER, else $PAGER, else less, if that is allowed and standard
    /// output is a terminal. An empty pager, and "cat", mean none.
    void startPager() { wantsPager_ = paging_ == Paging::automatic; }

    /// Prints what printable() makes of `text`, in a style when there is colour.
    void print(std::string_view text, Style style = Style::plain) { put(printable(text), style); }

    /// The same, and ends the line.
    void printLine(std::string_view text = "", Style style = Style::plain) {
        print(text, style);
        raw("\n");
    }

    /// The same with spaces behind `text`, up to `width` columns as they are shown.
    void printColumn(std::string_view text, std::size_t width, Style style = Style::plain) {
        put(padded(printable(text), width), style);
    }

    /// A line of a text that a program logged or traced: its tabs stay.
    void printTextLine(std::string_view line) { raw(printable(line, Tabs::kept) += '\n'); }

    /// Bytes as they are.
    void raw(std::string_view bytes);

    /// Hands everything to the kernel. False when some of it was lost.
    bool flush();

    /// Flushes, and waits until the user has left the pager: what is told then does not get in its
    /// way. A user who has left early has lost nothing.
    void finish();

    /// The end of all output. Throws Failure when some of it was lost.
    void close();

    /// Sleeps for a moment. False, at once, when whoever reads the output has gone.
    bool waitWithReader() const;

    /// Nobody reads any more, or it cannot be written: what is printed now is lost.
    bool isDone() const { return failure_ != 0; }

private:
    void put(std::string_view shown, Style style);
    void openPager();

    bool coloured_;
    Paging paging_;
    bool wantsPager_ = false;  // from the first output on
    int failure_ = 0;          // errno of the first failed write
    std::string pending_;
    std::FILE* pager_ = nullptr;
};

/// Writes "zelq: <message>" to standard error, made harmless like everything that is printed.
void complain(std::string_view message);

}  // namespace zelq

#endif
