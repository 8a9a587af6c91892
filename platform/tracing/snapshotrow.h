#ifndef ZELQ_SNAPSHOTROW_H
#define ZELQ_SNAPSHOTROW_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

// What stands before the text in a row of a snapshot, "hh:mm:ss.mmm pid/tid ". Rows reach the disk with the
// records that have them as items. Formatting by hand: an error log takes three snapshots of some hundred
// rows each while it is built.

namespace zelq {

/// What a row tells of its line's origin; what is the same in all rows is left out.
enum class RowOrigin { processAndThread, thread, none };

constexpr std::size_t rowHeadSize = sizeof "hh:mm:ss.mmm 4294967295/4294967295 ";

inline char* putRowDigits(char* to, unsigned value, int digits, char separator) {
    for (char* at = to + digits; at != to; value /= 10) {
        *--at = static_cast<char>('0' + value % 10);
    }
    to[digits] = separator;
    return to + digits + 1;
}

inline char* putRowId(char* to, std::uint32_t number, char separator) {
    char* const end = std::to_chars(to, to + 10, number).ptr;
    *end = separator;
    return end + 1;
}

/// Writes the head of a row and returns its end.
inline char* putRowHead(char (&head)[rowHeadSize], std::uint64_t timeNs, std::uint32_t pid, std::uint32_t tid,
                        RowOrigin origin) {
    auto const ofDay = static_cast<unsigned>(timeNs / 1000000 % 86400000);
    char* end = putRowDigits(head, ofDay / 3600000, 2, ':');
    end = putRowDigits(end, ofDay / 60000 % 60, 2, ':');
    end = putRowDigits(end, ofDay / 1000 % 60, 2, '.');
    end = putRowDigits(end, ofDay % 1000, 3, ' ');
    if (origin == RowOrigin::processAndThread) {
        end = putRowId(end, pid, '/');
    }
    return origin == RowOrigin::none ? end : putRowId(end, tid, ' ');
}

/// What stands behind the head of a row.
inline std::string_view rowText(std::string_view row, RowOrigin origin) {
    for (int words = origin == RowOrigin::none ? 1 : 2; words > 0; --words) {
        row.remove_prefix(row.find(' ') + 1);
    }
    return row;
}

}  // namespace zelq

#endif
