#ifndef ZELQ_RINGREADER_H
#define ZELQ_RINGREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "common/systemcalls.h"
#include "tracing/ringlayout.h"

// Reading the trace ring, while programs write into it. Build with tracing/ringreader.cpp,
// tracing/ringfile.cpp and common/statefolder.cpp.
//
// Nothing in a ring is trusted: a reader copies each slot, keeps the copy only when no writer was
// in it meanwhile and its numbers agree with each other, and clamps lengths. The text of a line is
// whatever the traced program wrote, control characters included: escape it for a terminal.

namespace zelq {

/// One line of the ring, copied out of it.
struct TraceEntry {
    std::uint64_t ticket;  ///< the line's order number; lines of all processes in one sequence
    std::int64_t timeNs;   ///< nanoseconds since 1970-01-01 00:00 UTC
    std::uint32_t pid;
    std::uint32_t tid;
    std::uint32_t handle;     ///< the trace it was written to, 0 being the default one
    std::uint32_t length;     ///< of the text, at most 199
    char text[ringTextSize];  ///< zero-terminated

    std::string_view line() const { return {text, length}; }
};

/// Selects lines; what is not set matches every line.
struct TraceFilter {
    std::optional<std::uint32_t> pid;
    std::optional<std::uint32_t> tid;
    std::optional<std::uint32_t> handle;
};

/// What one call of RingReader::follow() brought.
struct TraceProgress {
    std::size_t count;      ///< entries filled in
    std::uint64_t overrun;  ///< tickets that were written over, or given up, before they could be read
    bool more;              ///< the array was full; there is more to read at once
};

/// Reads one ring: the shared one through its file, or one in this process's memory. Not for use
/// by several threads at once.
class RingReader {
public:
    /// Opens the user's shared ring for reading; never through a link, and nothing but a ring that
    /// programs of this user would write to. Returns 0 or an errno: ENOENT when no program has
    /// traced yet; problem() then says in words what is wrong. The file is read, not mapped, so
    /// that cutting it short cannot end the reading process. Throws std::bad_alloc.
    int open();

    /// Reads a ring in memory instead, which must stay mapped. Allocates nothing, and neither do
    /// newest() and follow() then: all three may be used in a signal handler.
    void attach(RingHeader const* header, RingSlot const* slots, std::uint64_t slotCount);

    /// Why the last open() failed, without the path, for instance "is not a regular file"; "" if it
    /// did not.
    char const* problem() const { return problem_; }

    /// How many lines the ring can hold. 0 before open() or attach().
    std::size_t slotCount() const { return static_cast<std::size_t>(slotCount_); }

    /// Fills `entries` with the newest lines that match, at most `capacity`, oldest first, and
    /// returns their number. follow() then goes on behind them.
    std::size_t newest(TraceFilter const& filter, TraceEntry* entries, std::size_t capacity);

    /// Fills `entries` with the matching lines that were written since the last newest() or
    /// follow(), in the order of their tickets. Without an earlier call it begins with the oldest
    /// line. Never waits; a line that is just being written is left for the next call, but one
    /// that is not complete after a quarter of a second counts as overrun: its writer has died.
    TraceProgress follow(TraceFilter const& filter, TraceEntry* entries, std::size_t capacity);

    /// Lets follow() go on behind this ticket.
    void continueAfter(std::uint64_t ticket);

    /// True when the file was removed since open(): programs started later write to another one,
    /// which open() would find.
    bool isRemoved() const;

private:
    enum class Found { line, otherLine, pending, overrun };

    bool readNextTicket(std::uint64_t* ticket) const;
    void loadChunk(std::uint64_t firstSlot);
    // By reference: 32-bit code would push the ticket in halves and wait for both to load it as one.
    Found readTicket(std::uint64_t const& ticket, TraceFilter const& filter, TraceEntry* entry);
    void settle(std::uint64_t end);

    Descriptor descriptor_;
    RingHeader const* header_ = nullptr;
    RingSlot const* slots_ = nullptr;
    std::uint64_t slotCount_ = 0;
    unsigned slotCountLog2_ = 0;
    char const* problem_ = "";

    std::uint64_t position_ = 0;  // the first ticket follow() has not passed
    bool positioned_ = false;
    std::uint64_t markedTicket_ = 0;  // what was the next ticket at markedTime_
    std::int64_t markedTimeNs_ = 0;
    std::uint64_t settledTicket_ = 0;  // whoever took a ticket before this one had time to write

    std::unique_ptr<unsigned char[]> buffer_;  // a chunk of the file, twice
    std::uint64_t chunkFirst_ = 0;
    bool chunkLoaded_ = false;
};

}  // namespace zelq

#endif
