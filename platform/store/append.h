#ifndef ZELQ_STORE_APPEND_H
#define ZELQ_STORE_APPEND_H

#include <cstddef>
#include <cstdio>

// The error-log store: one JSON object per line, in files within the state folder.
//
//   errors.jsonl      the newest records
//   errors.jsonl.1    older ones, and so on; the higher the number, the older
//   errors.lock       empty; flock(LOCK_EX) on it is held by whoever writes, rotates or removes
//
//   ZELQ_STORE_SIZE   bytes that a file may reach before the next one is begun, 4K to 1G; 16M.
//                     A single record longer than that still gets into a file, alone.
//   ZELQ_STORE_FILES  number of files, the newest counted, 2 to 100; 8
//
//   errors.pruned     the part of a file that stays, while `zelq log prune` writes it
//
// Invariants that readers may rely on: lines are only ever added at the end of errors.jsonl. A
// line without '\n' is the last one of its file, and its writer died or is still at work; the
// next writer begins a new line behind it. Files only ever move to higher numbers, and there may
// be gaps between the numbers. What is removed is always the oldest part of the store: whole files,
// and the beginning of one more. That one is replaced, under its name, by a file without it: who
// has the old one open sees nothing of that, and nothing is added to the old one any more.

namespace zelq {

constexpr unsigned storeFilesMaximum = 100;
constexpr std::size_t storeNameSize = 24;

/// Writes the name of file `index` within the folder into `name`; 0 is the newest.
inline void storeFileName(unsigned index, char (&name)[storeNameSize]) {
    std::snprintf(name, sizeof name, index == 0 ? "errors.jsonl" : "errors.jsonl.%u", index);
}

/// What xlog_record() returns: an xlog_result, and the errno of the failing call.
struct StoreOutcome {
    int result;
    int crc;
};

/// Appends one line and returns when it is on disk, or after it has changed nothing.
///
/// `line` begins with a '\n' and ends with one; the first is written only where the file does not
/// end in one. Waits up to 10 seconds for other writers. Allocates nothing. May change errno.
StoreOutcome appendToStore(char const* line, std::size_t size) noexcept;

}  // namespace zelq

#endif
