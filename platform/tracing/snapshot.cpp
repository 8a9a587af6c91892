// Snapshots of the ring as text: for a log that is to show what led up to it.

#include <emmintrin.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "common/copybytes.h"
#include "common/systemcalls.h"
#include "common/text.h"
#include "tracing/ring.h"
#include "tracing/ringreader.h"
#include "tracing/snapshotrow.h"
#include "zelqplatform/trace_service.h"

#include <unistd.h>

namespace {

using zelq::RowOrigin;
using zelq::TraceEntry;
using zelq::TraceFilter;

constexpr unsigned int defaultRowWidth = 80;
constexpr std::size_t longestRow = zelq::rowHeadSize + zelq::ringLineMax + 1;

constexpr std::size_t runSize = sizeof(__m128i);

// Bytes from 0x80 on are negative here.
bool isRunPrintable(unsigned char const* bytes) {
    __m128i const run = _mm_loadu_si128(reinterpret_cast<__m128i const*>(bytes));
    __m128i const others =
        _mm_or_si128(_mm_cmplt_epi8(run, _mm_set1_epi8(0x20)), _mm_cmpeq_epi8(run, _mm_set1_epi8(0x7F)));
    return _mm_movemask_epi8(others) == 0;
}

bool areAllPrintable(unsigned char const* bytes, std::size_t length) {
    if (length < runSize) {
        return std::all_of(bytes, bytes + length, zelq::isPrintableAscii);
    }
    std::size_t const lastRun = length - runSize;
    for (std::size_t i = 0; i < lastRun; i += runSize) {
        if (!isRunPrintable(bytes + i)) {
            return false;
        }
    }
    return isRunPrintable(bytes + lastRun);
}

/// Writes rows of at most `width` characters into a buffer that has room for them.
class RowWriter {
public:
    RowWriter(char* buffer, std::size_t width) : begin_(buffer), end_(buffer), width_(std::min(width, longestRow)) {}

    void add(TraceEntry const& entry, RowOrigin origin) {
        rowEnd_ = end_ + width_ - 1;  // the newline needs a place
        makeHead(entry, origin);
        append(head_, headLength_);
        appendText(entry);
        *end_++ = '\n';
    }

    int byteCount() const { return static_cast<int>(end_ - begin_); }

private:
    // Most rows begin like the one before.
    void makeHead(TraceEntry const& entry, RowOrigin origin) {
        constexpr std::uint64_t millisecond = 1000000;
        auto const timeNs = static_cast<std::uint64_t>(entry.timeNs);  // any number, in a damaged ring
        if (timeNs >= headBeginNs_ && timeNs < headEndNs_ && entry.pid == headPid_ && entry.tid == headTid_) {
            return;
        }
        headBeginNs_ = timeNs - timeNs % millisecond;
        headEndNs_ = headBeginNs_ + millisecond;
        headPid_ = entry.pid;
        headTid_ = entry.tid;
        headLength_ = static_cast<std::size_t>(zelq::putRowHead(head_, timeNs, entry.pid, entry.tid, origin) - head_);
    }

    void append(char const* text, std::size_t length) {
        std::size_t const count = std::min(length, static_cast<std::size_t>(rowEnd_ - end_));
        zelq::copyBytes(end_, text, count);
        end_ += count;
    }

    // A row is one line of valid text whatever the traced program wrote, so that the whole snapshot
    // can be stored and shown as text. No character is cut in two.
    void appendText(TraceEntry const& entry) {
        auto const* bytes = reinterpret_cast<unsigned char const*>(entry.text);
        if (areAllPrintable(bytes, entry.length)) {
            append(entry.text, entry.length);
            return;
        }
        for (unsigned char const* const textEnd = bytes + entry.length; bytes != textEnd && end_ != rowEnd_;) {
            std::size_t const length = zelq::utf8Length(bytes, static_cast<std::size_t>(textEnd - bytes));
            if (length == 0 || zelq::isControl(bytes, length)) {
                *end_++ = '.';
            } else if (length <= static_cast<std::size_t>(rowEnd_ - end_)) {
                append(reinterpret_cast<char const*>(bytes), length);
            } else {
                break;
            }
            bytes += std::max<std::size_t>(length, 1);
        }
    }

    char* begin_;
    char* end_;
    char* rowEnd_ = nullptr;
    std::size_t width_;

    char head_[zelq::rowHeadSize];
    std::size_t headLength_ = 0;
    std::uint64_t headBeginNs_ = 0;  // for times from here
    std::uint64_t headEndNs_ = 0;    // up to here
    std::uint32_t headPid_ = 0;
    std::uint32_t headTid_ = 0;
};

struct Snapshot {
    int failure;
    int rows;
    int bytes;
};

Snapshot take(char* buffer, std::size_t lines, std::size_t width, TraceFilter const& filter, RowOrigin origin) {
    zelq::ProcessRing* const ring = zelq::processRing();
    if (ring == nullptr || buffer == nullptr) {
        return {EINVAL, 0, 0};
    }
    std::size_t const slots = static_cast<std::size_t>(ring->slotMask) + 1;
    std::size_t const capacity = width < 2 ? 0 : std::min(lines, slots);
    zelq::ErrnoKeeper const keeper;  // a failing allocation sets it
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
    return {0, static_cast<int>(count), rows.byteCount()};
}

int fetchOwn(char* buffer, unsigned int size, TraceFilter const& filter, RowOrigin origin, int* byteCount) {
    Snapshot const snapshot = take(buffer, size / defaultRowWidth, defaultRowWidth, filter, origin);
    if (byteCount != nullptr) {
        *byteCount = snapshot.bytes;
    }
    return snapshot.failure;
}

}  // namespace

int xtr_fetch(char* buffer, unsigned int lines, unsigned int lineWidth, int* rowCount, int* byteCount) {
    Snapshot const snapshot = take(buffer, lines, lineWidth, TraceFilter{}, RowOrigin::processAndThread);
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
    return fetchOwn(buffer, size, filter, RowOrigin::thread, byteCount);
}

int xtr_fetch_tid(char* buffer, unsigned int size, int* byteCount) {
    TraceFilter filter;
    filter.pid = static_cast<std::uint32_t>(getpid());
    filter.tid = static_cast<std::uint32_t>(gettid());
    return fetchOwn(buffer, size, filter, RowOrigin::none, byteCount);
}
