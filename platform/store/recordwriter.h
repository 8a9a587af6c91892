#ifndef ZELQ_STORE_RECORDWRITER_H
#define ZELQ_STORE_RECORDWRITER_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "zelqplatform/errorlog_service.h"

// A record as one line of JSON. Fields, in this order:
//
//   v            1; a reader that knows only this version still finds the fields it knows
//   id           16 lower-case hexadecimal digits, random
//   time         UTC, "2026-11-22T10:00:00.123456Z"
//   host program pid tid              who recorded it
//   class type user                   numbers
//   severity     "error" or "informational"
//   flags        names of the other attribute bits that have one
//   attributes   the whole attribute word as a number, so that bits without a name are kept
//   event log_id                      text
//   event_base64 log_id_base64        the exact bytes, only when they are not valid UTF-8
//   lost_before  how many records this process failed to store before this one; only when not 0
//   items        [{"id":N,"size":N,"text":"..."} or {"id":N,"size":N,"base64":"..."}]
//
// Field names and their meaning reach the disk: add fields, but never change one.

namespace zelq {

/// What a record tells about its origin. Apart from the record itself, so that a test can fix it.
struct RecordOrigin {
    std::uint64_t id;
    timespec time;  ///< since 1970, not negative
    char const* host;
    char const* program;
    int pid;
    int tid;
};

/// Appends the line with its '\n' to `line`. The result is valid JSON and valid UTF-8 whatever the
/// bytes of the record are, and no byte of its items is lost: an item is "text" when its bytes,
/// less one optional zero byte at the end, are non-empty printable UTF-8 (tab, line feed and
/// carriage return included) and "base64" otherwise; "size" counts the zero byte. Throws
/// std::bad_alloc; the caller's string then holds a part of the line.
void renderRecord(xlog_record_interface const& record, RecordOrigin const& origin, std::uint64_t lostBefore,
                  std::string& line);

}  // namespace zelq

#endif
