// Snapshots of the ring as text: for a log that is to show what led up to it.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "common/utf8.h"
#include "tracing/ring.h"
#include "tracing/ringreader.h"
#include "zelqplatform/trace_service.h"

#include <unistd.h>

namespace {

using zelq::TraceEntry;
using zelq::TraceFilter;

constexpr unsigned int defaultRowWidth = 80;

/// What a row tells of its line's origin; what is the same in all rows is left out.
enum class Origin { processAndThread, thread, none };

/// Writes rows of at most `width` characters into a buffer that has room for them.
class RowWriter {
public:
    RowWriter(char* buffer, std::size_t width) : begin_(buffer), end_(buffer), width_(width) {}

    void add(TraceEntry const& entry, Origin origin) {
        rowEnd_ = end_ + width_ - 1;  // the newline needs a place
        char head[64];
        std::int64_t const milliseconds = entry.timeNs / 1000000;
        int const ofDay = static_cast<int>(milliseconds / 1000 % 86400);
        append(head, std::snprintf(head, sizeof head, "%02d:%02d:%02d.%03d ", ofDay / 3600, ofDay / 60 % 60,
                                   ofDay % 60, static_cast<int>(milliseconds % 1000)));
        if (origin == Origin::processAndThread) {
            append(head, std::snprintf(head, sizeof head, "%u/%u ", entry.pid, entry.tid));
        } else if (origin == Origin::thread) {
            append(head, std::snprintf(head, sizeof head, "%u ", entry.tid));
        }
        appendText(entry);
        *end_++ = '\n';
    }

    int byteCount() const { return static_cast<int>(end_ - begin_); }

private:
    void append(char const* text, int length) {
        std::size_t const room = static_cast<std::size_t>(rowEnd_ - end_);
        std::size_t const count = static_cast<std::size_t>(length) < room ? static_cast<std::size_t>(length) : room;
        std::memcpy(end_, text, count);
        end_ += count;
    }

    // A row is one line of valid text whatever the traced program wrote, so that the whole snapshot
    // can be stored and shown as text. No character is cut in two.
    void appendText(TraceEntry const& entry) {
        auto const* bytes = reinterpret_cast<unsigned char const*>(entry.text);
        std::size_t left = entry.length;
        while (left != 0) {
            std::size_t const length = zelq::utf8Length(bytes, left);
            bool const isShown = length > 1 || (length == 1 && bytes[0] >= 0x20 && bytes[0] != 0x7F);
            std::size_t const taken = length == 0 ? 1 : length;
            if (static_cast<std::size_t>(rowEnd_ - end_) < (isShown ? taken : 1)) {
                return;
            }
            append(isShown ? reinterpret_cast<char const*>(bytes) : ".", isShown ? static_cast<int>(taken) : 1);
            bytes += taken;
            left -= taken;
        }
    }

    char* begin_;
    char* end_;
    char* rowEnd_ = nullptr;
    std::size_t width_;
};

struct Snapshot {
    int failure;
    int rows;
    int bytes;
};

Snapshot take(char* buffer, std::size_t lines, std::size_t width, TraceFilter const& filter, Origin origin) {
    int const callersErrno = errno;
    zelq::ProcessRing* const ring = zelq::processRing();
    if (ring == nullptr || buffer == nullptr) {
        return {EINVAL, 0, 0};
    }
    std::size_t const slots = static_cast<std::size_t>(ring->slotMask) + 1;
    std::size_t const capacity = width < 2 ? 0 : lines < slots ? lines : slots;
    std::unique_ptr<TraceEntry[]> const entries(new (std::nothrow) TraceEntry[capacity]);
    if (!entries) {
        return {ENOMEM, 0, 0};
    }
    zelq::RingReader reader;
    reader.attach(ring->header, ring->slots, slots);
    std::size_t const count = capacity == 0 ? 0 : reader.newest(filter, entries.get(), capacity);
    RowWriter rows(buffer, width);
    for (std::size_t i = 0; i < count; ++i) {
        rows.add(entries[i], origin);
    }
    errno = callersErrno;
    return {0, static_cast<int>(count), rows.byteCount()};
}

int fetchOwn(char* buffer, unsigned int size, TraceFilter const& filter, Origin origin, int* byteCount) {
    Snapshot const snapshot = take(buffer, size / defaultRowWidth, defaultRowWidth, filter, origin);
    if (byteCount != nullptr) {
        *byteCount = snapshot.bytes;
    }
    return snapshot.failure;
}

}  // namespace

int xtr_fetch(char* buffer, unsigned int lines, unsigned int lineWidth, int* rowCount, int* byteCount) {
    Snapshot const snapshot = take(buffer, lines, lineWidth, TraceFilter{}, Origin::processAndThread);
    if (rowCount != nullptr) {
        *rowCount = snapshot.rows;
    }
    if (byteCount != nullptr) {
        *byteCount = snapshot.bytes;
    }
    return snapshot.failure;
}

int xtr_fetch_pid(char* buffer, unsigned int size, int* byteCount) {
    TraceFilter filter;
    filter.pid = static_cast<std::uint32_t>(getpid());
    return fetchOwn(buffer, size, filter, Origin::thread, byteCount);
}

int xtr_fetch_tid(char* buffer, unsigned int size, int* byteCount) {
    TraceFilter filter;
    filter.pid = static_cast<std::uint32_t>(getpid());
    filter.tid = static_cast<std::uint32_t>(gettid());
    return fetchOwn(buffer, size, filter, Origin::none, byteCount);
}
